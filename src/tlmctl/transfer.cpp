#include "tlmctl/transfer.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/ledger.h"
#include "tlmctl/texts.h"
#include "tlmctl/transfer_progress.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kReleaseTime{500};

std::string EntryFor(const InputFile& file, const std::string& directory, const std::string& suffix = "") {
  return std::to_string(file.Size) + ":0:" + directory + file.Name + suffix;
}

// What the server holds of files that differ from ours in size, by path.
std::map<std::string, std::uint64_t> SizesFound(QorJMClient& client, const StringList& entries) {
  StringList differing;
  client.CheckClientFiles(entries, {differing});
  std::map<std::string, std::uint64_t> sizes;
  for (const std::string& entry : differing) {
    const std::size_t first = entry.find(':');
    const std::size_t second = entry.find(':', first + 1);
    if (second == std::string::npos) continue;
    sizes[entry.substr(second + 1)] = std::strtoull(entry.c_str(), nullptr, 10);
  }
  return sizes;
}

bool IsSame(const InputFile& file, const SentFile& sent) {
  return file.Name == sent.Name && file.Size == sent.Size && file.ModTime == sent.ModTime;
}

// True if the file as it is now is what was sent last under its name.
bool WasSent(const std::vector<LedgerEntry>& entries, const std::string& server, const std::string& directory,
             const InputFile& file) {
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (entry->Server != server || entry->Directory != directory) continue;
    const auto sent = std::find_if(entry->Sent.begin(), entry->Sent.end(),
                                   [&](const SentFile& known) { return known.Name == file.Name; });
    if (sent != entry->Sent.end()) return IsSame(file, *sent);
  }
  return false;
}

std::uint64_t TotalOf(const std::vector<Decision>& decisions) {
  std::uint64_t total = 0;
  for (const Decision& decision : decisions) total += decision.Sends ? decision.File.Size : 0;
  return total;
}

bool IsUnchanged(const InputFile& file) {
  std::error_code error;
  return std::filesystem::file_size(file.Path, error) == file.Size && !error &&
         std::filesystem::last_write_time(file.Path, error).time_since_epoch().count() == file.ModTime;
}

// How much of the file a transfer that was broken off has left on the server.
std::uint64_t Arrived(QorJMClient& client, const InputFile& file, const std::string& directory) {
  if (file.Size == 0 || !IsUnchanged(file)) return 0;
  const auto found = SizesFound(client, {EntryFor(file, directory, ".tmp")});
  const auto size = found.find(directory + file.Name + ".tmp");
  if (size == found.end()) return file.Size;
  return size->second < file.Size ? size->second : 0;
}

// Items for all that is to be sent, each from where an earlier attempt has stopped.
FileTransferList ItemsFor(QorJMClient& client, const Plan& plan, const std::vector<Decision>& decisions, bool goesOn) {
  std::string serverDirectory;
  client.MapClientDirectory(plan.Directory, serverDirectory);
  FileTransferList list;
  for (const Decision& decision : decisions) {
    if (!decision.Sends) continue;
    MFile destination(plan.Directory + decision.File.Name);
    destination.SetDirectory(serverDirectory);
    const std::uint64_t offset = goesOn ? Arrived(client, decision.File, plan.Directory) : 0;
    list.Items.push_back({destination.Path(), decision.File.Path, static_cast<std::uint32_t>(offset)});
  }
  return list;
}

}  // namespace

std::vector<Decision> DecideTransfers(QorJMClient& client, const Settings& settings, const Plan& plan, bool all) {
  StringList entries;
  for (const InputFile& file : plan.Inputs) entries.push_back(EntryFor(file, plan.Directory));
  const auto differing = SizesFound(client, entries);
  const std::vector<LedgerEntry> ledger = Ledger().Read();
  std::vector<Decision> decisions;
  for (const InputFile& file : plan.Inputs) {
    Decision decision{file, true, ""};
    const auto found = differing.find(plan.Directory + file.Name);
    if (found != differing.end() && found->second == 0) {
      decision.Reason = "the server lacks it";
    } else if (found != differing.end()) {
      decision.Reason = "the server has " + SizeText(found->second) + " of that name";
    } else if (file.Size == 0 || all) {
      decision.Reason = all ? "all are sent" : "it is empty";
    } else if (!WasSent(ledger, AddressOf(settings).Text(), plan.Directory, file)) {
      decision.Reason = "it may have changed since it was sent";
    } else {
      decision.Sends = false;
      decision.Reason = "the server has it";
    }
    decisions.push_back(std::move(decision));
  }
  return decisions;
}

void SendFiles(Link& link, const Settings& settings, const Plan& plan, const std::vector<Decision>& decisions) {
  for (const Decision& decision : decisions) {
    if (decision.Sends) Note(settings, "sending " + decision.File.Name + ", " + SizeText(decision.File.Size));
  }
  bool goesOn = false;
  int attempts = 0;
  const auto send = [&](QorJMClient& client) {
    ++attempts;
    FileTransferList list = ItemsFor(client, plan, decisions, goesOn);
    goesOn = true;
    if (list.Items.empty()) return true;
    TransferProgress progress(settings, "sending", TotalOf(decisions));
    list.Watcher = &progress;
    return client.PutFiles(list);
  };
  if (link.Persist(send)) return;
  // The call that was broken off may have held the files when the next one was to put them in place.
  if (attempts > 1) {
    platform::Sleep(kReleaseTime);
    if (link.Persist(send)) return;
  }
  // Another client may have made the server clean up a directory that was still empty. A new connection gets another.
  goesOn = false;
  link.Open();
  if (link.Persist(send)) return;
  throw Failure{kRefused, "the server could not store all the files",
                "its disk may be full; 'tlmctl doctor' tells more"};
}

}  // namespace tlm::ctl
