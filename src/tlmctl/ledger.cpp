#include "tlmctl/ledger.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <sstream>

#include "platform/environment.h"
#include "platform/file.h"
#include "platform/file_lock.h"
#include "platform/file_system.h"
#include "platform/thread.h"
#include "tlmctl/server_key.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

constexpr char kNoteMark[] = "tlmctl:";
constexpr std::size_t kIdDigits = 12;
constexpr std::uint64_t kLargestFile = 4 << 20;
constexpr std::size_t kEntriesKept = 1000;

fs::path StateDirectory() {
  if (const auto state = platform::GetVariable("XDG_STATE_HOME"); state && fs::path(*state).is_absolute()) {
    return fs::path(*state) / "tlmctl";
  }
  const auto home = platform::GetVariable("HOME");
  return home && !home->empty() ? fs::path(*home) / ".local/state/tlmctl" : fs::path();
}

Json FilesToJson(const std::vector<SentFile>& files) {
  Json list = Json::array();
  for (const SentFile& file : files) list.push_back({{"name", file.Name}, {"size", file.Size}, {"time", file.ModTime}});
  return list;
}

LedgerEntry EntryOf(const Json& line) {
  LedgerEntry entry;
  line.at("id").get_to(entry.Id);
  line.at("handle").get_to(entry.Handle);
  line.at("server").get_to(entry.Server);
  entry.Key = line.value("key", "");
  line.at("directory").get_to(entry.Directory);
  line.at("name").get_to(entry.Name);
  line.at("command").get_to(entry.Command);
  line.at("words").get_to(entry.Words);
  line.at("from").get_to(entry.From);
  line.at("submitted").get_to(entry.Submitted);
  for (const Json& file : line.at("sent")) {
    entry.Sent.push_back({file.at("name"), file.at("size"), file.at("time")});
  }
  return entry;
}

Json EntryToJson(const LedgerEntry& entry) {
  return {{"id", entry.Id},
          {"handle", entry.Handle},
          {"server", entry.Server},
          {"key", entry.Key},
          {"directory", entry.Directory},
          {"name", entry.Name},
          {"command", entry.Command},
          {"words", entry.Words},
          {"from", entry.From},
          {"submitted", entry.Submitted},
          {"sent", FilesToJson(entry.Sent)}};
}

Json OutcomeToJson(const LedgerEntry& entry) {
  return {{"id", entry.Id},
          {"outcome", entry.Outcome},
          {"exit_code", entry.ExitCode ? Json(*entry.ExitCode) : Json()},
          {"code", entry.Code ? Json(*entry.Code) : Json()},
          {"ended", entry.Ended}};
}

void TakeOutcome(const Json& line, std::vector<LedgerEntry>& entries) {
  const auto entry = std::find_if(entries.rbegin(), entries.rend(),
                                  [&](const LedgerEntry& known) { return known.Id == line.at("id"); });
  if (entry == entries.rend()) return;
  line.at("outcome").get_to(entry->Outcome);
  line.at("ended").get_to(entry->Ended);
  if (const Json& code = line.at("exit_code"); code.is_number()) entry->ExitCode = code.get<int>();
  if (const auto code = line.find("code"); code != line.end() && code->is_number()) entry->Code = code->get<int>();
}

// Waits for others to be done with the file, who take moments. Empty if the lock is not to be had.
std::optional<platform::FileLock> LockLedger(const std::string& path) {
  constexpr int kTries = 200;
  constexpr std::chrono::milliseconds kTryInterval{10};
  std::optional<platform::FileLock> lock = platform::FileLock::Open(path + ".lock");
  for (int i = 0; lock && !lock->TryLock(); ++i) {
    if (i == kTries) return std::nullopt;
    platform::Sleep(kTryInterval);
  }
  return lock;
}

std::string Line(const Json& fields) { return fields.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'; }

}  // namespace

std::string NewId() {
  std::random_device source;
  std::array<char, 17> digits;
  std::snprintf(digits.data(), digits.size(), "%08x%08x", source(), source());
  return std::string(digits.data()).substr(0, kIdDigits);
}

std::string NoteWithId(const std::string& id, const std::string& note) {
  return kNoteMark + id + (note.empty() ? "" : ' ' + note);
}

std::string IdOfNote(const std::string& note) {
  if (!note.starts_with(kNoteMark)) return {};
  return note.substr(sizeof kNoteMark - 1, note.find(' ') - (sizeof kNoteMark - 1));
}

std::string PlainNote(const std::string& note) {
  if (!note.starts_with(kNoteMark)) return note;
  const std::size_t blank = note.find(' ');
  return blank == std::string::npos ? "" : note.substr(blank + 1);
}

Ledger::Ledger() {
  const fs::path directory = StateDirectory();
  if (!directory.empty()) path_ = (directory / "ledger.jsonl").string();
}

bool IsOn(const LedgerEntry& entry, const std::string& serverKey) {
  return (entry.Key.empty() ? ServerKey(entry.Server) : entry.Key) == serverKey;
}

Failure Ambiguous(const std::string& digits, const std::string& one, const std::string& other) {
  return {kRefused, '@' + digits + " could be " + one + " or " + other, "give more digits of the one that is meant"};
}

void Ledger::Append(const Json& fields) const {
  if (path_.empty()) return;
  const fs::path directory = fs::path(path_).parent_path();
  std::error_code ignored;
  fs::create_directories(directory, ignored);
  fs::permissions(directory, fs::perms::owner_all, ignored);  // keys that jobs are given stand in it
  const auto lock = LockLedger(path_);
  platform::FileStatus status;
  if (lock && platform::GetFileStatus(path_, status) == 0 && status.Size > kLargestFile) CutDown();
  // One write, so that lines stay whole also where there was no lock. A torn line before it ends here.
  const std::string text = (platform::EndsWithinLine(path_) ? "\n" : "") + Line(fields);
  if (auto file = platform::File::Open(path_, platform::File::Mode::Append)) {
    fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_write, ignored);
    (void)file->Write(text);
  }
}

// Nobody else may write meanwhile.
void Ledger::CutDown() const {
  std::vector<LedgerEntry> entries = Read();
  entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(std::min(entries.size(), kEntriesKept)));
  std::string text;
  for (const LedgerEntry& kept : entries) {
    text += Line(EntryToJson(kept));
    if (!kept.Outcome.empty()) text += Line(OutcomeToJson(kept));
  }
  const fs::path path(path_);
  const auto until = platform::MakeUniqueFile(path.parent_path().string(), path.filename().string());
  if (until && !platform::ReplaceWholeFile(path_, *until, text)) platform::RemoveFile(*until);
}

void Ledger::Add(LedgerEntry entry) const {
  entry.Key = ServerKey(entry.Server);
  Append(EntryToJson(entry));
}

void Ledger::SetOutcome(const LedgerEntry& entry) const { Append(OutcomeToJson(entry)); }

std::vector<LedgerEntry> Ledger::Read() const {
  std::vector<LedgerEntry> entries;
  std::istringstream text(platform::ReadWholeFile(path_).value_or(""));
  for (std::string line; std::getline(text, line);) {
    const Json fields = Json::parse(line, nullptr, false);
    try {
      if (fields.is_object() && fields.contains("outcome")) {
        TakeOutcome(fields, entries);
      } else if (fields.is_object()) {
        entries.push_back(EntryOf(fields));
      }
    } catch (const Json::exception&) {  // not a line of this version
    }
  }
  return entries;
}

std::optional<LedgerEntry> Ledger::FindLatest(const std::function<bool(const LedgerEntry&)>& isWanted) const {
  const std::vector<LedgerEntry> entries = Read();
  const auto found = std::find_if(entries.rbegin(), entries.rend(), isWanted);
  return found == entries.rend() ? std::nullopt : std::optional(*found);
}

std::optional<LedgerEntry> Ledger::Find(const std::string& server, std::uint64_t handle) const {
  const std::string key = ServerKey(server);
  return FindLatest([&](const LedgerEntry& entry) { return entry.Handle == handle && IsOn(entry, key); });
}

std::optional<LedgerEntry> Ledger::FindById(const std::string& digits, const std::string& server) const {
  const std::string key = server.empty() ? "" : ServerKey(server);
  const auto isMeant = [&](const LedgerEntry& entry) {
    return entry.Id.starts_with(digits) && (key.empty() || IsOn(entry, key));
  };
  auto found = FindLatest(isMeant);
  if (!found || found->Id == digits) return found;
  const auto other = FindLatest([&](const LedgerEntry& entry) { return isMeant(entry) && entry.Id != found->Id; });
  if (other) throw Ambiguous(digits, '@' + other->Id, '@' + found->Id);
  return found;
}

}  // namespace tlm::ctl
