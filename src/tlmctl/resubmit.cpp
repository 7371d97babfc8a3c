#include <algorithm>
#include <iostream>
#include <memory>

#include "platform/file_system.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/jobs.h"
#include "tlmctl/ledger.h"

namespace tlm::ctl {

namespace {

// The one that is meant, on whichever server it was.
LedgerEntry FindEntry(const Settings& settings, const std::string& word) {
  const std::vector<LedgerEntry> entries = Ledger().Read();
  const auto isMeant = [&](const LedgerEntry& entry) {
    if (word == "last") return true;
    if (word.starts_with('@')) return entry.Id.starts_with(word.substr(1));
    return std::to_string(entry.Handle) == word && entry.Server == AddressOf(settings).Text();
  };
  const auto found = std::find_if(entries.rbegin(), entries.rend(), isMeant);
  if (found != entries.rend()) return *found;
  throw Failure{kRefused, "no job " + word + " was submitted from here", "'tlmctl history' shows those that were"};
}

int Resubmit(Program& program, const Settings& settings, const std::string& word) {
  const LedgerEntry entry = FindEntry(settings, word);
  if (!platform::ChangeDirectory(entry.From)) {
    throw Failure{kRefused, "the directory " + entry.From + ", in which it was submitted, cannot be entered"};
  }
  std::string line = "tlmctl";
  for (const std::string& each : entry.Words) line += ' ' + each;
  Note(settings, "in " + entry.From + ": " + line);
  return program.Run(entry.Words);
}

}  // namespace

void AddResubmit(Program& program) {
  const auto job = std::make_shared<std::string>("last");
  CLI::App& command = program.AddCommand(
      {.Name = "resubmit",
       .Description = "Run or submit once more what was run or submitted before",
       .Examples = {{"resubmit", "the last one"}, {"resubmit @3f2a", "the one with this id, see tlmctl history"}},
       .Operations = {},
       .Details = "It is done with the same words in the same directory, and so with the files as they are now."},
      [job, &program](const Settings& settings) { return Resubmit(program, settings, *job); });
  command.add_option("JOB", *job, "Handle, @ID or last")->type_name(kJobValue)->capture_default_str();
}

}  // namespace tlm::ctl
