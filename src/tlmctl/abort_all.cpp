#include <chrono>
#include <iostream>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/polling.h"
#include "tlmctl/status_line.h"

namespace tlm::ctl {

namespace {

// The server looks at a process once a second.
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::seconds kPatience{5};

// What the server has left, once nothing of it runs or the patience has come to an end.
JobCounts AwaitEnds(QorJMClient& client) {
  JobCounts left;
  const auto haveEnded = [&] {
    left = CountJobs(FetchAllKnownJobs(client));
    return left.Running + left.Waiting == 0;
  };
  (void)WaitUntil(haveEnded, kPollInterval, kPatience);
  return left;
}

void EndAll(QorJMClient& client, const Settings& settings, std::size_t running) {
  StatusLine line(settings);
  if (running > 0) line.Show("ending " + JobsText(running) + "; a program that is asked to end has 10 seconds for it");
  if (!client.AbortAllJobs()) throw RefusedChange();
}

int AbortAll(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  const JobCounts before = CountJobs(FetchAllKnownJobs(client));
  RequireConsent(settings, "End all that runs (" + JobsText(before.Running) + ") and waits (" +
                               JobsText(before.Waiting) + ") on " + AddressOf(settings).Text() +
                               ", of all clients, and drop what has succeeded?");
  EndAll(client, settings, before.Running);
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
                      .Details = "Jobs that have failed stay on the server until 'tlmctl release'. Programs that have "
                                 "attached are asked to end,\n"
                                 "one after the other, and made to after 10 seconds."},
                     AbortAll);
}

}  // namespace tlm::ctl
