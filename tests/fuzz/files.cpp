// Files and texts that users, other programs and other servers write. What is written of them is read as it was.
#include "dist/client_files.h"
#include "dist/server_pool.h"
#include "exec/command_line.h"
#include "exec/result_files.h"
#include "fuzz/fuzz.h"
#include "heat2d/deck.h"
#include "jm/qorjmmsgstream.h"
#include "jm/result_manifest.h"
#include "libtsenv/ini_file.h"
#include "libtsenv/registry.h"
#include "platform/posix/program_line.h"
#include "store/directory_records.h"
#include "store/submission.h"
#include "tlmctl/display_width.h"
#include "tlmctl/ledger.h"
#include "tlmctl/server_log.h"

namespace tlm::fuzz {
FUZZ(commands) {
  CommandBaseName(input);
  std::string_view rest = input;
  std::vector<std::string> tokens, same;
  for (bool more = true; more;) {
    more = NextCommand(rest, tokens);
    std::string quoted;
    for (const std::string& token : tokens) {
      for (const char c : token) quoted.append("\\").push_back(c);
      quoted += ' ';
    }
    std::string_view again = quoted += ';';
    Require(NextCommand(again, same) && same == tokens);
    const std::string line = JoinTokens(tokens);
    Require(FailureText(line).size() % 2 == 0);
    const auto program = platform::ParseProgramLine(line);
    Require(!program || (program->Program.starts_with('/') && !program->Arguments.empty()));
  }
}

FUZZ(messages) {
  Disk().Write("qorjmmsg.7", input);
  QorJMMsgStream().ReadMessage(4, nullptr, 7, Disk().Root(), true);
  Require(!Disk().Has("qorjmmsg.7"));
}

FUZZ(directories) {
  const std::string path = Disk().Write("table", input);
  RequireSettled([&] {
    ReplaceDirectoryRecords(path, ReadDirectoryRecords(path).value());
    return Disk().Read("table");
  });
  Require(AppendDirectoryRecord(path, {"host", "/key", "/tmp/tq"}));
}

FUZZ(pool) {
  Disk().Write("tlm2010_dp.sta", input);
  RequireSettled([] {
    JobManagerState state;
    const MAutoLock lock(state.StateLock);
    state.TempRoot = Disk().Root();
    ReadServerPool(state);
    SetServerPool(state, StringList(state.ServerPool));
    return Disk().Read("tlm2010_dp.sta");
  });
}

FUZZ(manifest) {
  const FileTransferList received{{{Disk() / "a.x", ""}, {Disk().Write("a.crc", input), ""}}};
  CheckReceivedResults(received, true);
  RequireSettled([&] {
    std::string lines;
    for (const auto& [path, size, date] : ReadManifest(received)) {
      if (!path.ends_with('/')) lines += ManifestLine(MFile(path), size, date);
    }
    Disk().Write("a.crc", lines);
    return lines;
  });
}

// Two lists, which may name each other.
FUZZ(results) {
  const std::size_t half = std::min(input.find('\0'), input.size());
  Disk().Write("job/a.exr", input.substr(0, half));
  Disk().Write("job/b.exr", input.substr(half));
  for (const char* name : {"job/a.x", "job/b.x", "job/c.x"}) Disk().Write(name);
  Job job;
  job.TempDir = Disk() / "job";
  job.ResultStem = "a";
  const auto found = ResultFileScan(job, job.TempDir).value();
  for (const MFile& file : found) Require(file.Extension() == ".x");
}

FUZZ(settings) {
  Disk().Write("user.ini", input);
  Require(IniVariable(Disk() / "user", "N").value_or("").size() <= 255);
  std::string text;
  ReadRegistryString(RegistryHive::User, "K\\L", "N", text);
  Require(text.size() < kRegistryStringSize);
}

// What is asked for by the size that was told is not missing.
FUZZ(client_files) {
  JobManagerState state;
  const MAutoLock lock(state.StateLock);
  Session session;
  Disk().Write("here/a", "four");
  session.DirectoryMap["/c/"] = Disk() / "here/";
  std::istringstream words(input);
  for (std::string entry; std::getline(words, entry);) {
    for (const std::string& answer : MissingClientFiles(state, session, {entry})) {
      Require(answer.starts_with("0:0:") || MissingClientFiles(state, session, {answer}).empty());
    }
  }
}

FUZZ(ledger) {
  Disk().Write("tlmctl/ledger.jsonl", input);
  RequireSettled([] {
    const std::vector<ctl::LedgerEntry> entries = ctl::Ledger().Read();
    Disk().Write("tlmctl/ledger.jsonl");
    for (ctl::LedgerEntry entry : entries) {
      entry.Server = "127.0.0.1:1";  // a name would be looked up
      ctl::Ledger().Add(entry);
    }
    return Disk().Read("tlmctl/ledger.jsonl");
  });
  const std::string shown = ctl::Printable(input);
  Require(ctl::Printable(shown) == shown && ctl::DisplayWidth(ctl::CutToWidth(shown, 10)) <= 10);
}

FUZZ(server_log) {
  const std::string path = Disk().Write("server.log", input);
  for (const ctl::LoggedJob& job : ctl::ReadServerLog(path).Jobs) ToJson(job);
}

FUZZ(deck) {
  std::vector<heat2d::DeckError> errors;
  const heat2d::Deck deck = heat2d::ReadDeck(input, errors);
  Require(!errors.empty() || (deck.Width > 0 && deck.Height > 0 && deck.Nx > 0 && deck.Ny > 0));
}
}  // namespace tlm::fuzz
