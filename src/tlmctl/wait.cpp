#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/followed_jobs.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/job_json.h"
#include "tlmctl/time_values.h"

namespace tlm::ctl {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{250};

struct WaitOptions {
  std::vector<std::string> Jobs;
  bool Any = false;
  std::string Timeout;
};

// The one whose end is enough; null while there is none.
const FollowedJob* FirstOver(const FollowedJobs& jobs) {
  const auto over = std::find_if(jobs.Jobs().begin(), jobs.Jobs().end(), [](const auto& job) { return job.IsOver(); });
  return over == jobs.Jobs().end() ? nullptr : &*over;
}

// False once the time has passed.
bool AwaitEnds(FollowedJobs& jobs, bool any, const std::optional<steady_clock::time_point>& end) {
  while (true) {
    jobs.Poll();
    if (jobs.AreOver() || (any && FirstOver(jobs))) return true;
    if (end && steady_clock::now() >= *end) return false;
    EndIfInterrupted();
    platform::Sleep(kPollInterval);
  }
}

void PrintEnds(const FollowedJobs& jobs, bool inTime) {
  Json list = Json::array();
  for (const FollowedJob& job : jobs.Jobs()) {
    list.push_back({{"over", job.IsOver()},
                    {"gone", job.IsGone},
                    {"removed", job.WasRemoved},
                    {"job", JobJson(job.Job.Handle, job.Job.State)}});
  }
  PrintJson({{"timed_out", !inTime}, {"jobs", std::move(list)}});
}

int Wait(const Settings& settings, const WaitOptions& options) {
  std::optional<steady_clock::time_point> end;
  Settings patient = settings;
  if (!options.Timeout.empty()) {
    const std::chrono::seconds limit = DurationOf(options.Timeout);
    end = steady_clock::now() + limit;
    // Nor is a lost connection made again for longer than that.
    if (patient.WaitServer.count() == 0) patient.WaitServer = std::max(limit, std::chrono::seconds(1));
  }
  CatchInterrupts();
  FollowedJobs jobs(patient, options.Jobs);
  const bool inTime = AwaitEnds(jobs, options.Any, end);
  if (settings.Json) PrintEnds(jobs, inTime);
  if (!inTime) throw Failure{kTimedOut, "the jobs have not all ended within " + options.Timeout, "they go on"};
  if (!options.Any) return jobs.ExitCode();
  const FollowedJob& first = *FirstOver(jobs);
  if (!settings.Json) std::cout << first.Job.Handle << '\n';
  return first.ExitCode();
}

}  // namespace

void AddWait(Program& program) {
  const auto options = std::make_shared<WaitOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "wait",
       .Description = "Wait for the ends of jobs, without a word",
       .Examples = {{"wait 4 8 && tlmctl results 8", "goes on once both have succeeded"},
                    {"wait --timeout 10m last", "ends with 124 if the job has not ended by then"},
                    {"wait --any 4 8 12", "prints the handle of the first that ends"}},
       .Operations = {"GetJob", "ListRemovedJobs"},
       .Details =
           "The exit code is that of the job's program, or of the first that failed, in the order in which they\n"
           "are named. A job that leaves the server meanwhile is no failure unless a client removed it. A\n"
           "connection that is lost is made again. In a batch system: tlmctl wait $(tlmctl submit ...)"},
      [options](const Settings& settings) { return Wait(settings, *options); });
  command.add_option("JOB", options->Jobs, "Handle, @ID or last")->required()->type_name(kJobValue);
  command.add_flag("--any", options->Any, "Wait for one of them only, and print its handle");
  command.add_option("--timeout", options->Timeout, "For no longer than this, as in 90, 15m or 2h")
      ->type_name(kDurationValue);
}

}  // namespace tlm::ctl
