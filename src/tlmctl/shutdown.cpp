#include <chrono>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/polling.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::seconds kPatience{30};  // it waits for the programs that it ends

bool HasGone(QorJMClient& client) { return client.Ping() == ORpcClient::State::Closed; }

int Shutdown(const Settings& settings) {
  const std::string server = AddressOf(settings).Text();
  QorJMClient client;
  Connect(client, settings);
  const JobCounts jobs = CountJobs(FetchAllKnownJobs(client));
  RequireConsent(settings, "End the server at " + server + "? Lost: " + std::to_string(jobs.Running) + " running, " +
                               std::to_string(jobs.Waiting) + " waiting, and what it knows of " + JobsText(jobs.Ended) +
                               " at an end.");
  client.Shutdown();
  if (!WaitUntil([&] { return HasGone(client); }, kPollInterval, kPatience)) {
    throw Failure{kTimedOut, "the server at " + server + " was told to end, and still answers"};
  }
  if (settings.Json) {
    PrintJson({{"server", server},
               {"lost_running", jobs.Running},
               {"lost_waiting", jobs.Waiting},
               {"forgotten", jobs.Ended}});
  } else if (!settings.Quiet) {
    Say("the server at " + server + " is ending, with " + JobsText(jobs.Running + jobs.Waiting) +
        "; its process may take 15 seconds more");
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
           "end its work before. Returns when the server has closed its port; its process may live up to 15 seconds\n"
           "longer. A service is better ended with systemctl, which knows about it then."},
      Shutdown);
}

}  // namespace tlm::ctl
