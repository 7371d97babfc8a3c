#include <iostream>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

int Ping(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  const double milliseconds = MeasureNullCall(client);
  const bool found = SayHello(client, settings);
  if (settings.Json) {
    PrintJson({{"server", AddressOf(settings).Text()},
               {"milliseconds", milliseconds},
               {"release", settings.Release},
               {"takes_jobs", found}});
    return kGood;
  }
  if (settings.Quiet) return kGood;
  std::cout << AddressOf(settings).Text() << " answered in " << MillisecondsText(milliseconds)
            << "\nprograms of release " << settings.Release << (found ? ": found" : ": not found, jobs will be refused")
            << '\n';
  return kGood;
}

}  // namespace

void AddPing(Program& program) {
  program.AddCommand({.Name = "ping",
                      .Description = "Ask whether the server answers, and whether it takes jobs",
                      .Examples = {{"ping", "the server of this machine"},
                                   {"ping --server alpha --wait-server 60", "waits for one that is starting"}},
                      .Operations = {"Hello"},
                      .Details = "With --quiet the exit code alone tells whether the server answers."},
                     Ping);
}

}  // namespace tlm::ctl
