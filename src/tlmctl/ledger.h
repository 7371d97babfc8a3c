// What this user has submitted from this machine. A server forgets its jobs at a restart, and counts handles from 4
// again: so each submission has an id of its own, which travels in the job's note and stands here.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tlmctl/console.h"

namespace tlm::ctl {

struct SentFile {
  std::string Name;
  std::uint64_t Size = 0;
  std::int64_t ModTime = 0;  // nanoseconds since some moment that stays the same
};

struct LedgerEntry {
  std::string Id;
  std::uint64_t Handle = 0;
  std::string Server;  // HOST:PORT, as it was typed
  std::string Key;     // of the server; empty in lines of earlier versions
  std::string Directory;
  std::string Name;
  std::string Command;
  std::vector<std::string> Words;  // of the command line behind "tlmctl"
  std::string From;                // the directory in which that was typed
  std::int64_t Submitted = 0;      // seconds since 1970
  std::vector<SentFile> Sent;
  // Empty until the end was seen; then as a program reads it, as in "finished".
  std::string Outcome;
  std::optional<int> ExitCode;  // of the job's program
  std::optional<int> Code;      // with which a sub-command ends that has awaited the job
  std::int64_t Ended = 0;
};

// True if that is where the job was submitted to.
bool IsOn(const LedgerEntry& entry, const std::string& serverKey);

std::string NewId();
// The note with the id in front, as the job carries it, and its two parts. A job of another client has no id.
std::string NoteWithId(const std::string& id, const std::string& note);
std::string IdOfNote(const std::string& note);
std::string PlainNote(const std::string& note);

// A file under $XDG_STATE_HOME for this user's eyes, to which lines are added. A ledger that cannot be written or read
// is no failure: then nothing is remembered.
class Ledger {
 public:
  Ledger();
  void Add(LedgerEntry entry) const;
  void SetOutcome(const LedgerEntry& entry) const;
  // In the order of submission. A line that is torn, or that a later version wrote, is passed over.
  std::vector<LedgerEntry> Read() const;

  // The latest that is wanted, if any.
  std::optional<LedgerEntry> FindLatest(const std::function<bool(const LedgerEntry&)>& isWanted) const;
  // The latest of the server's that has the handle, if any. The server is HOST:PORT.
  std::optional<LedgerEntry> Find(const std::string& server, std::uint64_t handle) const;
  // The one whose id begins so, of the server's or, without one, of all. Throws Failure if there are several.
  std::optional<LedgerEntry> FindById(const std::string& digits, const std::string& server = {}) const;

 private:
  void Append(const Json& line) const;
  void CutDown() const;
  std::string path_;  // empty if there is nowhere to write
};

// "@3f2a could be A or B".
Failure Ambiguous(const std::string& digits, const std::string& one, const std::string& other);

}  // namespace tlm::ctl
