#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/deadline.h"
#include "tlmctl/followed_jobs.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/job_json.h"
#include "tlmctl/time_values.h"

namespace tlm::ctl {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{250};
constexpr std::chrono::milliseconds kLongestCall{500};  // of one that the time's end does not break off

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

Json EndsOf(const FollowedJobs& jobs) {
  Json list = Json::array();
  for (const FollowedJob& job : jobs.Jobs()) {
    list.push_back({{"over", job.IsOver()},
                    {"gone", job.IsGone},
                    {"removed", job.WasRemoved},
                    {"code", job.IsOver() ? Json(job.ExitCode()) : Json()},
                    {"job", JobJson(job.Job.Handle, job.Job.State)}});
  }
  return list;
}

// How the jobs stand, for two threads.
class Ends {
 public:
  void Set(Json ends) {
    const std::scoped_lock lock(mutex_);
    ends_ = std::move(ends);
  }
  Json Get() const {
    const std::scoped_lock lock(mutex_);
    return ends_;
  }

 private:
  mutable std::mutex mutex_;
  Json ends_ = Json::array();
};

int TellTimeout(const Settings& settings, const WaitOptions& options, const Json& ends) {
  if (settings.Json) PrintJson({{"timed_out", true}, {"jobs", ends}});
  const std::string jobs = options.Any ? "none of the jobs has ended" : "the jobs have not all ended";
  PrintFailure(settings, {kTimedOut, jobs + " within " + options.Timeout, "they go on"});
  return kTimedOut;
}

int TellEnds(const Settings& settings, const WaitOptions& options, const FollowedJobs& jobs) {
  if (settings.Json) PrintJson({{"timed_out", false}, {"jobs", EndsOf(jobs)}});
  for (const FollowedJob& job : jobs.Jobs()) {
    if (job.IsOver() && job.IsEndUnknown()) Note(settings, CourseText(job));
  }
  if (!options.Any) return jobs.ExitCode();
  const FollowedJob& first = *FirstOver(jobs);
  if (!settings.Json) std::cout << first.Job.Handle << '\n';
  return first.ExitCode();
}

// False once the time has passed.
bool AwaitEnds(FollowedJobs& jobs, bool any, const std::optional<steady_clock::time_point>& end, Ends& ends) {
  while (true) {
    jobs.Poll();
    if (jobs.AreOver() || (any && FirstOver(jobs))) return true;
    if (end && steady_clock::now() >= *end) return false;
    EndIfInterrupted();
    ends.Set(EndsOf(jobs));
    platform::Sleep(kPollInterval);
  }
}

int Wait(const Settings& settings, const WaitOptions& options) {
  Settings patient = settings;
  std::optional<steady_clock::time_point> end;
  std::optional<Deadline> deadline;
  const auto ends = std::make_shared<Ends>();
  CatchInterrupts(kInterruptPatience);
  if (!options.Timeout.empty()) {
    const std::chrono::seconds limit = DurationOf(options.Timeout);
    end = steady_clock::now() + limit;
    // Nor is a lost connection made again for longer than that.
    if (patient.WaitServer.count() == 0) patient.WaitServer = std::max(limit, std::chrono::seconds(1));
    deadline.emplace(*end + kLongestCall,
                     [settings, options, ends] { return TellTimeout(settings, options, ends->Get()); });
  }
  FollowedJobs jobs(patient, options.Jobs);
  const bool inTime = AwaitEnds(jobs, options.Any, end, *ends);
  if (deadline) deadline->CallOff();
  return inTime ? TellEnds(settings, options, jobs) : TellTimeout(settings, options, EndsOf(jobs));
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
           "are named. Of a job that has left the server it is what 'tlmctl history' knows, 75 if that is\n"
           "nothing. A connection that is lost is made again. In a batch system: tlmctl wait $(tlmctl submit ...)"},
      [options](const Settings& settings) { return Wait(settings, *options); });
  command.add_option("JOB", options->Jobs, kJobHelp)->required()->type_name(kJobValue);
  command.add_flag("--any", options->Any, "Wait for one of them only, and print its handle");
  command.add_option("--timeout", options->Timeout, "For no longer than this, as in 90, 15m or 2h")
      ->type_name(kDurationValue);
}

}  // namespace tlm::ctl
