// What several sub-commands ask about jobs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "jm/qorjmclient.h"
#include "tlmctl/connection.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/ledger.h"

namespace tlm::ctl {

// A job that a user has named.
struct KnownJob {
  std::uint64_t Handle = 0;
  Task State;
  std::optional<LedgerEntry> Entry;  // if this user has submitted it from this machine

  bool IsThere() const { return State.Status != 0; }
};

inline constexpr char kJobHelp[] = "Handle, @ID or last; =HANDLE for whichever job has it now";

// The job as it stands; empty if the server has none of this handle. A finished job whose results were taken leaves the
// server by being read: then this is the last that is heard of it.
std::optional<Task> FetchJob(QorJMClient& client, std::uint64_t handle);

// The job that a word means, as it stands:
//   4      the handle. Throws Failure if this user has submitted another job under it: the server was restarted since.
//   =4     the same, whichever job it is by now
//   @3f2a  the one whose id begins so, in the ledger or on the server
//   last   the latest of this user's jobs on the server
// An end that is seen so is written down. Throws Failure if there is no such job, or not any more.
KnownJob FindJob(QorJMClient& client, const Settings& settings, const std::string& word);
// The same, but a job of the ledger may have left the server: then it is not there, and of its state the name is known.
KnownJob FindJobOrEntry(QorJMClient& client, const Settings& settings, const std::string& word);

// What the ledger tells of a job that the server has no more, as a sentence.
std::string KnownOutcome(const std::optional<LedgerEntry>& entry);
Failure UnknownJob(std::uint64_t handle);

// "job 4", with its name if it has one.
std::string Subject(std::uint64_t handle, const Task& task);

// The server gives output and results to nobody but the job's owner, which this client becomes if there is none. Throws
// Failure if there is another.
void BecomeOwner(QorJMClient& client, const Settings& settings, std::uint64_t handle);

bool HasEnded(const Task& task);
// True for a job that has ended with success.
bool HasSucceeded(const Task& task);
// True if a client has taken the job away.
bool WasRemovedByClient(QorJMClient& client, std::uint64_t handle);

// True if the program's exit code is not known to the server: the process was another server's, or not started by one.
bool EndedElsewhere(const Task& task);
bool EndedUnderNoServer(const Task& task);

// How a sub-command ends that has seen this end of a job: as the job's program, if that has run to its end.
int ExitCodeOf(const Task& task, bool removed);

// Of the job's last process; empty if there was none, or its code is not known, or it has not ended.
std::optional<int> ProgramExitCode(const Task& task);

// Writes down the end of the job, if it stands in the ledger without one and has ended.
void Remember(KnownJob& job);

}  // namespace tlm::ctl
