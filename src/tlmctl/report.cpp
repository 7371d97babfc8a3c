#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "report/own_job.h"
#include "report/reporter.h"
#include "tlmctl/commands.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

using platform::StopEvent, report::Message, report::Opening, report::OwnJob, report::Reporter;

constexpr char kAttach[] = "attach", kProgress[] = "progress", kStopRequested[] = "stop-requested";

struct ReportOptions {
  std::string What;
  std::optional<std::uint32_t> Percent;
};

// What a script says with one call. Each is a process with a connection of its own, of which only "attach" attaches:
// that would take back what was said before.
std::map<std::string, Message> Messages(const std::optional<std::uint32_t>& percent) {
  return {{kAttach, {}},
          {kProgress, {.Progress = percent}},
          {"results", {.ResultsAvailable = true}},
          {"succeeded", {.Succeeded = true}},
          {"retry", {.Retry = true}}};
}

// The event is made at the first question, since nobody is to wait for a script that does not ask.
bool StopRequested(const OwnJob& job) {
  std::optional<StopEvent> stop = StopEvent::OpenOrCreate(report::StopEventName(job));
  if (stop) stop->LeaveName();
  return stop && stop->IsSet();
}

int Report(const ReportOptions& options) {
  if (options.Percent.has_value() != (options.What == kProgress)) {
    throw Failure{kUsage, "a percentage goes with report progress, and only with that"};
  }
  const std::optional<OwnJob> job = report::FindOwnJob();
  if (job) report::TakeSettingsOfJobManager(*job);
  if (options.What == kStopRequested) std::cout << (job && StopRequested(*job) ? "yes" : "no") << std::endl;
  if (!job || options.What == kStopRequested) return kGood;
  Reporter reporter(job->Process, options.What == kAttach ? Opening::Attach : Opening::Continue,
                    StopEvent::Open(report::StopEventName(*job)));
  reporter.Put(Messages(options.Percent).at(options.What));
  return reporter.Finish() ? kGood : kUnreachable;
}

}  // namespace

void AddReport(Program& program) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "report",
       .Description = "From within a job's script: tell the job manager that runs it",
       .Examples = {{"report attach", "first of all"},
                    {"report progress 40", "how far the job is"},
                    {"report succeeded", "what a job has to say to count as a success"}},
       .Operations = {"AttachProcess", "SetProgress", "ResultsAvailable", "JobSucceeded", "RequestRetry"},
       .Details = "Outside of a job it has no effect."},
      [options](const Settings&) { return Report(*options); });
  command
      .add_option("WHAT", options->What,
                  "attach (say it first), progress PERCENT, results (they are there), succeeded, retry, or "
                  "stop-requested (prints yes or no). Outside of a job none has an effect")
      ->required()
      ->check(CLI::IsMember({kAttach, kProgress, "results", "succeeded", "retry", kStopRequested}));
  command.add_option("PERCENT", options->Percent, "How far the job is")->check(CLI::Range(0, 100));
}

}  // namespace tlm::ctl
