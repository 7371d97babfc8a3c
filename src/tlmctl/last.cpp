#include <iostream>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/details.h"
#include "tlmctl/outcomes.h"
#include "tlmctl/server_key.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

int Last(const Settings& settings) {
  const std::string server = AddressOf(settings).Text();
  const std::string key = ServerKey(server);
  const auto entry = Ledger().FindLatest([&](const LedgerEntry& candidate) { return IsOn(candidate, key); });
  if (!entry) {
    throw Failure{kRefused, "no job was submitted to " + server + " from here", "'tlmctl history' shows all"};
  }
  if (settings.Quiet) {
    std::cout << entry->Handle << '\n';
    return kGood;
  }
  const PastJob job = LearnOutcomes(settings, {*entry}).front();
  if (settings.Json) {
    PrintJson(ToJson(job));
    return kGood;
  }
  PrintDetail("Job", std::to_string(entry->Handle));
  PrintDetail("Id", entry->Id);
  PrintDetail("Server", entry->Server);
  PrintDetail("Name", entry->Name);
  PrintDetail("Outcome", OutcomeText(job));
  PrintDetail("Submitted", LocalTimeText(entry->Submitted));
  PrintDetail("End seen", LocalTimeText(entry->Ended));
  PrintDetail("Command", entry->Command);
  PrintDetail("Directory", entry->Directory);
  PrintSubmission(*entry);
  return kGood;
}

}  // namespace

void AddLast(Program& program) {
  program.AddCommand({.Name = "last",
                      .Description = "Show what I have submitted last to this server",
                      .Examples = {{"last", "with its files, and what became of it"}, {"last -q", "its handle alone"}},
                      .Operations = {"GetJob"},
                      .Details = "Where a command takes a job, the word last means this one."},
                     Last);
}

}  // namespace tlm::ctl
