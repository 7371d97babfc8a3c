#include "tlmctl/ledger.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <random>
#include <sstream>

#include "platform/environment.h"
#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/thread.h"

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

Json OutcomeOf(const LedgerEntry& entry) {
  return {{"id", entry.Id},
          {"outcome", entry.Outcome},
          {"exit_code", entry.ExitCode ? Json(*entry.ExitCode) : Json()},
          {"ended", entry.Ended}};
}

void TakeOutcome(const Json& line, std::vector<LedgerEntry>& entries) {
  const auto entry = std::find_if(entries.rbegin(), entries.rend(),
                                  [&](const LedgerEntry& known) { return known.Id == line.at("id"); });
  if (entry == entries.rend()) return;
  line.at("outcome").get_to(entry->Outcome);
  line.at("ended").get_to(entry->Ended);
  if (const Json& code = line.at("exit_code"); code.is_number()) entry->ExitCode = code.get<int>();
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

void Ledger::Append(const Json& fields) const {
  if (path_.empty()) return;
  std::error_code ignored;
  fs::create_directories(fs::path(path_).parent_path(), ignored);
  // One write, so that lines of several clients at once stay whole. A torn line before it ends here.
  const std::optional<std::string> before = platform::ReadWholeFile(path_);
  const bool torn = before && !before->empty() && before->back() != '\n';
  if (auto file = platform::File::Open(path_, platform::File::Mode::Append)) {
    (void)file->Write((torn ? "\n" : "") + Line(fields));
  }
}

void Ledger::Add(const LedgerEntry& entry) const {
  platform::FileStatus status;
  if (platform::GetFileStatus(path_, status) == 0 && status.Size > kLargestFile) {
    std::vector<LedgerEntry> entries = Read();
    entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(std::min(entries.size(), kEntriesKept)));
    std::string text;
    for (const LedgerEntry& kept : entries) {
      text += Line(ToJson(kept));
      if (!kept.Outcome.empty()) text += Line(OutcomeOf(kept));
    }
    platform::ReplaceWholeFile(path_, path_ + "~", text);
  }
  Append(ToJson(entry));
}

void Ledger::SetOutcome(const LedgerEntry& entry) const { Append(OutcomeOf(entry)); }

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

std::optional<LedgerEntry> Ledger::Find(const std::string& server, std::uint64_t handle) const {
  const std::vector<LedgerEntry> entries = Read();
  const auto found = std::find_if(entries.rbegin(), entries.rend(), [&](const LedgerEntry& entry) {
    return entry.Server == server && entry.Handle == handle;
  });
  return found == entries.rend() ? std::nullopt : std::optional(*found);
}

Json ToJson(const LedgerEntry& entry) {
  return {{"id", entry.Id},
          {"handle", entry.Handle},
          {"server", entry.Server},
          {"directory", entry.Directory},
          {"name", entry.Name},
          {"command", entry.Command},
          {"words", entry.Words},
          {"from", entry.From},
          {"submitted", entry.Submitted},
          {"sent", FilesToJson(entry.Sent)}};
}

}  // namespace tlm::ctl
