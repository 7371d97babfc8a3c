#include <chrono>
#include <iostream>
#include <map>
#include <memory>

#include "platform/terminal.h"
#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/followed_jobs.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/job_json.h"
#include "tlmctl/live_table.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};

std::string Heading(const Settings& settings, const FollowedJobs& jobs) {
  std::size_t over = 0;
  std::size_t waiting = 0;
  for (const FollowedJob& job : jobs.Jobs()) {
    if (job.IsOver()) {
      ++over;
    } else if (job.Job.State.Status == Queued) {
      ++waiting;
    }
  }
  return AddressOf(settings).Text() + ": " + std::to_string(jobs.Jobs().size() - over - waiting) + " running, " +
         std::to_string(waiting) + " waiting, " + std::to_string(over) + " ended" +
         (jobs.AreOver() ? "" : "; any key ends this, and no job");
}

int WatchInPlace(const Settings& settings, FollowedJobs& jobs) {
  platform::KeyInput keys;
  LiveTable table;
  jobs.OnLoss([&table] { table.Clear(); });
  while (true) {
    jobs.Poll();
    table.Draw(Heading(settings, jobs), jobs.Jobs());
    if (jobs.AreOver()) return jobs.ExitCode();
    if (keys.Wait(kPollInterval) || TakeInterrupt()) return kInterrupted;
  }
}

void TellChange(const Settings& settings, const FollowedJob& job) {
  if (settings.Json) {
    PrintJson({{"event", job.IsOver() ? "end" : "state"},
               {"job", JobJson(job.Job.Handle, job.Job.State)},
               {"gone", job.IsGone},
               {"code", job.IsOver() ? Json(job.ExitCode()) : Json()},
               {"removed", job.WasRemoved}});
  } else if (settings.Quiet) {
    std::cout << job.Job.Handle << ' ' << (job.IsGone ? "gone" : StatusWord(job.Job.State.Status)) << std::endl;
  } else {
    std::cout << CourseText(job) << std::endl;
  }
}

// A line for each change, for a file or a program.
int WatchByLine(const Settings& settings, FollowedJobs& jobs) {
  std::map<std::uint64_t, std::string> told;
  while (true) {
    jobs.Poll();
    for (const FollowedJob& job : jobs.Jobs()) {
      std::string text = CourseText(job);
      if (job.EndedBefore || text == told[job.Job.Handle]) continue;
      TellChange(settings, job);
      told[job.Job.Handle] = std::move(text);
    }
    if (jobs.AreOver()) return jobs.ExitCode();
    if (TakeInterrupt()) return kInterrupted;
    if (!std::cout) return kGood;  // nobody reads it any more
    platform::Sleep(kPollInterval);
  }
}

int Watch(const Settings& settings, const std::vector<std::string>& words) {
  CatchInterrupts(kInterruptPatience);
  FollowedJobs jobs(settings, words);
  const bool inPlace = !settings.Json && !settings.Quiet && LiveTable::IsPossible();
  const int code = inPlace ? WatchInPlace(settings, jobs) : WatchByLine(settings, jobs);
  for (const FollowedJob& job : jobs.Jobs()) {
    if (job.EndedBefore || job.IsGone || job.WasRemoved || !job.IsOver() || HasSucceeded(job.Job.State)) continue;
    Note(settings, "'tlmctl why " + std::to_string(job.Job.Handle) + "' tells more");
    break;
  }
  return code;
}

}  // namespace

void AddWatch(Program& program) {
  const auto jobs = std::make_shared<std::vector<std::string>>();
  CLI::App& command = program.AddCommand(
      {.Name = "watch",
       .Description = "Watch jobs to their ends",
       .Examples = {{"watch", "all jobs of the server, also those to come, until all have ended"},
                    {"watch 4 8", "two of them"},
                    {"watch --json last | jq .job.progress", "for programs: a document for each change"}},
       .Operations = {"GetJob", "ListJobs", "ListRemovedJobs"},
       .Details = "On a terminal a table is drawn anew again and again; any key ends that, and no job. Elsewhere each\n"
                  "change is a line. The exit code is that of the job's program, or of the first that failed. A\n"
                  "connection that is lost is made again."},
      [jobs](const Settings& settings) { return Watch(settings, *jobs); });
  command.add_option("JOB", *jobs, std::string(kJobHelp) + "; all jobs if none is named")->type_name(kJobValue);
}

}  // namespace tlm::ctl
