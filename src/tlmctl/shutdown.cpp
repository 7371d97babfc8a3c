#include <chrono>
#include <iostream>

#include "platform/thread.h"
#include "rpc/orpcerror.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::seconds kPatience{30};  // it waits for the programs that it ends

bool HasGone(QorJMClient& client) { return client.Ping() == ORpcClient::State::Closed; }

bool AwaitEnd(QorJMClient& client) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!HasGone(client)) {
    if (std::chrono::steady_clock::now() >= end) return false;
    platform::Sleep(kPollInterval);
  }
  return true;
}

int Shutdown(const Settings& settings) {
  const std::string server = AddressOf(settings).Text();
  QorJMClient client;
  Connect(client, settings);
  const JobCounts jobs = CountJobs(FetchAllKnownJobs(client));
  RequireConsent(settings, "End the server at " + server + "? Lost: " + JobsText(jobs.Running) + " that run, " +
                               std::to_string(jobs.Waiting) + " that wait, and what it knows of " +
                               std::to_string(jobs.Ended) + " that have ended.");
  client.Shutdown();
  if (!AwaitEnd(client)) {
    throw Failure{kTimedOut, "the server at " + server + " was told to end, and still answers"};
  }
  if (settings.Json) {
    PrintJson({{"server", server},
               {"lost_running", jobs.Running},
               {"lost_waiting", jobs.Waiting},
               {"forgotten", jobs.Ended}});
  } else if (!settings.Quiet) {
    std::cout << "the server at " << server << " has ended, with " << JobsText(jobs.Running + jobs.Waiting) << '\n';
  }
  return kGood;
}

}  // namespace

void AddShutdown(Program& program) {
  program.AddCommand(
      {.Name = "shutdown",
       .Description = "End the server; its jobs are lost",
       .Examples = {{"shutdown", "asks first, and says what is lost"},
                    {"--yes --server beta shutdown", "another one, without a question"}},
       .Operations = {"Shutdown", "ListJobs", "GetJob"},
       .Details =
           "What runs is ended, and what waits is forgotten; files stay. 'tlmctl queue drain --wait' lets the queue\n"
           "end its work before. A service is better ended with systemctl, which knows about it then."},
      Shutdown);
}

}  // namespace tlm::ctl
