#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "report/own_job.h"
#include "report/reporter.h"
#include "rpc/orpctrace.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

using platform::StopEvent, report::Message, report::Opening, report::OwnJob, report::Reporter;

constexpr char kAttach[] = "attach", kProgress[] = "progress", kLevel[] = "level", kStopRequested[] = "stop-requested";

struct ReportOptions {
  std::string What;
  std::vector<std::string> Numbers;
};

// Scripts say "33.3", "08" and "-1" for numbers. What stands behind the point counts for nothing, and what lies outside
// of the range is taken for the nearer end of it.
std::uint64_t NumberIn(const std::string& text) {
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
  if (rest != end || text.empty()) throw Failure{kUsage, text + " is no number"};
  if (text.front() == '-' || std::isnan(value)) return 0;
  std::uint64_t number = 0;
  const std::errc range = std::from_chars(text.data(), end, number).ec;
  return range == std::errc::result_out_of_range || std::isinf(value) ? std::numeric_limits<std::uint64_t>::max()
                                                                      : number;
}

// What a script says with one call. Each is a process with a connection of its own, of which only "attach" attaches:
// that would take back what was said before.
Message MessageOf(const ReportOptions& options) {
  const auto number = [&](std::size_t i) { return NumberIn(options.Numbers.at(i)); };
  if (options.What == kProgress) {
    return {.Progress = static_cast<std::uint32_t>(std::min<std::uint64_t>(number(0), 100))};
  }
  if (options.What == kLevel) return {.Level = report::RequiredLevel{number(0), number(1)}};
  return {.Retry = options.What == "retry",
          .ResultsAvailable = options.What == "results",
          .Succeeded = options.What == "succeeded"};
}

void CheckUsage(const ReportOptions& options) {
  const std::size_t expected = options.What == kProgress ? 1 : options.What == kLevel ? 2 : 0;
  if (options.Numbers.size() != expected) {
    throw Failure{kUsage, "report " + options.What + " takes " +
                              (expected == 0   ? "no number"
                               : expected == 1 ? "a percentage"
                                               : "a type and a level")};
  }
  for (const std::string& number : options.Numbers) NumberIn(number);
}

// The event is made at the first question, since nobody is to wait for a script that does not ask.
bool StopRequested(const OwnJob& job) {
  std::optional<StopEvent> stop = StopEvent::OpenOrCreate(report::StopEventName(job));
  if (stop) stop->LeaveName();
  return stop && stop->IsSet();
}

void TellStop(const Settings& settings, bool requested) {
  if (settings.Json) {
    PrintJson({{"stop_requested", requested}});
  } else {
    std::cout << (requested ? "yes" : "no") << std::endl;
  }
}

int Report(const Settings& settings, const ReportOptions& options) {
  CheckUsage(options);
  const std::optional<OwnJob> job = report::FindOwnJob();
  if (job) report::TakeSettingsOfJobManager(*job);
  SetORpcOutput(nullptr);  // what a script prints is its own
  if (options.What == kStopRequested) TellStop(settings, job && StopRequested(*job));
  if (!job || options.What == kStopRequested) return kGood;
  Reporter reporter(job->Process, options.What == kAttach ? Opening::Attach : Opening::Continue,
                    StopEvent::Open(report::StopEventName(*job)));
  reporter.Put(MessageOf(options));
  return reporter.Finish() ? kGood : kUnreachable;
}

}  // namespace

void AddReport(Program& program) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App& command =
      program.AddCommand({.Name = "report",
                          .Description = "From within a job's script: tell the job manager that runs it",
                          .Examples = {{"report attach", "first of all"},
                                       {"report progress 40", "how far the job is"},
                                       {"report level 1 3000", "what it takes, two numbers of the site's own"},
                                       {"report succeeded", "what a job has to say to count as a success"}},
                          .Operations = {"AttachProcess", "SetProgress", "ResultsAvailable", "JobSucceeded",
                                         "RequestRetry", "RequiredLevel"},
                          .Details = "Outside of a job it has no effect."},
                         [options](const Settings& settings) { return Report(settings, *options); });
  command
      .add_option(
          "WHAT", options->What,
          "attach (say it first), progress PERCENT, results (they are there), succeeded, retry, level TYPE LEVEL, "
          "or stop-requested (prints yes or no)")
      ->required()
      ->type_name("WHAT")
      ->check(CLI::IsMember({kAttach, kProgress, "results", "succeeded", "retry", kLevel, kStopRequested}));
  command.add_option("NUMBER", options->Numbers, "Of progress: how far the job is, 0 to 100. Of level: both")
      ->type_name("NUMBER")
      ->expected(0, 2);
}

}  // namespace tlm::ctl
