#include <chrono>
#include <iostream>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"

namespace tlm::ctl {

namespace {

// The server looks at a process once a second.
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::seconds kPatience{5};

// What the server has left, once nothing of it runs or the patience has come to an end.
JobCounts AwaitEnds(QorJMClient& client) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    const JobCounts counts = CountJobs(FetchAllKnownJobs(client));
    if (counts.Running + counts.Waiting == 0 || std::chrono::steady_clock::now() >= end) return counts;
    platform::Sleep(kPollInterval);
  }
}

int AbortAll(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  const JobCounts before = CountJobs(FetchAllKnownJobs(client));
  RequireConsent(settings, "End all that runs (" + JobsText(before.Running) + ") and waits (" +
                               JobsText(before.Waiting) + ") on " + AddressOf(settings).Text() +
                               ", of all clients, and drop what has succeeded?");
  client.AbortAllJobs();
  const JobCounts left = AwaitEnds(client);
  if (settings.Json) {
    PrintJson({{"were_running", before.Running},
               {"were_waiting", before.Waiting},
               {"still_running", left.Running + left.Waiting},
               {"left", left.Running + left.Waiting + left.Ended}});
  } else if (!settings.Quiet) {
    std::cout << JobsText(before.Running) << " ended, " << before.Waiting << " taken back, " << left.Ended
              << " left that failed or have results\n";
  }
  if (left.Running + left.Waiting == 0) return kGood;
  throw Failure{kRefused, JobsText(left.Running + left.Waiting) + " asked to end, and not ended yet",
                "'tlmctl list' shows them"};
}

}  // namespace

void AddAbortAll(Program& program) {
  program.AddCommand({.Name = "abort-all",
                      .Description = "End every job of every client",
                      .Examples = {{"abort-all", "asks first"}, {"--yes abort-all", "does not"}},
                      .Operations = {"AbortAllJobs", "ListJobs", "GetJob"},
                      .Details = "Jobs that have failed stay on the server until 'tlmctl release'."},
                     AbortAll);
}

}  // namespace tlm::ctl
