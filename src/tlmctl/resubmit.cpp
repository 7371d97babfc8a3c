#include <algorithm>
#include <memory>

#include "platform/file_system.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/details.h"
#include "tlmctl/ledger.h"
#include "tlmctl/server_key.h"

namespace tlm::ctl {

namespace {

constexpr char kServerOption[] = "--server";

// The one that is meant, on whichever server it was unless one is named.
LedgerEntry FindEntry(const Settings& settings, const std::string& word) {
  const std::string key = ServerKey(AddressOf(settings).Text());
  const auto isMeant = [&](const LedgerEntry& entry) {
    if (word == "last") return settings.Server.empty() || IsOn(entry, key);
    return std::to_string(entry.Handle) == word && IsOn(entry, key);
  };
  const auto found = word.starts_with('@') ? Ledger().FindById(word.substr(1)) : Ledger().FindLatest(isMeant);
  if (found) return *found;
  throw Failure{kRefused, "no job " + word + " was submitted from here", "'tlmctl history' shows those that were"};
}

// The one that stands on the command line now, and not just in the environment; else the one that took the job then.
std::string ServerFor(const Program& program, const Settings& settings, const LedgerEntry& entry) {
  const std::vector<CLI::Option*>& typed = program.Root().parse_order();
  if (std::find(typed.begin(), typed.end(), program.Root().get_option(kServerOption)) != typed.end()) {
    return settings.Server;
  }
  // The same words can mean another server on another machine.
  return entry.Key.empty() || ServerKey(entry.Server) == entry.Key ? entry.Server : entry.Key;
}

void SetServer(std::vector<std::string>& words, const std::string& server) {
  const std::string withValue = std::string(kServerOption) + '=';
  auto word = words.begin();
  while (word != words.end() && *word != "--") {
    if (word->starts_with(withValue)) {
      word = words.erase(word);
    } else if (*word == kServerOption) {
      word = words.erase(word, word + std::min<std::ptrdiff_t>(2, words.end() - word));
    } else {
      ++word;
    }
  }
  words.insert(words.begin(), {kServerOption, server});
}

int Resubmit(Program& program, const Settings& settings, const std::string& word) {
  LedgerEntry entry = FindEntry(settings, word);
  if (!platform::ChangeDirectory(entry.From)) {
    throw Failure{kRefused, "the directory " + entry.From + ", in which it was submitted, cannot be entered"};
  }
  SetServer(entry.Words, ServerFor(program, settings, entry));
  Note(settings, "in " + entry.From + ": " + CommandLineText(entry));
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
       .Details =
           "It is done with the same words in the same directory, and so with the files as they are now; on the same\n"
           "server, too, unless another one is named with --server."},
      [job, &program](const Settings& settings) { return Resubmit(program, settings, *job); });
  command.add_option("JOB", *job, "Handle, @ID or last")->type_name(kJobValue)->capture_default_str();
}

}  // namespace tlm::ctl
