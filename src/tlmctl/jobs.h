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
};

// The job as it stands; empty if the server has none of this handle. A finished job whose results were taken leaves the
// server by being read: then this is the last that is heard of it.
std::optional<Task> FetchJob(QorJMClient& client, std::uint64_t handle);

// The handle that a user means: a number, "last" for the latest of this user's jobs on the server, or the first digits
// of an id from the ledger, behind an '@'. Throws Failure if it names none.
std::uint64_t HandleOf(const Settings& settings, const std::string& word);

// The job as it stands. Throws Failure if the server has no such job any more, or if it is another one than this user
// has submitted under the handle: the server has been restarted since.
KnownJob FindJob(QorJMClient& client, const Settings& settings, const std::string& word);

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

// How a sub-command ends that has seen this end of a job: as the job's program, if that has run to its end.
int ExitCodeOf(const Task& task, bool removed);

// Of the job's last process; empty if there was none, or its code is not known, or it has not ended.
std::optional<int> ProgramExitCode(const Task& task);

// Writes down the end of the job, if it stands in the ledger and has ended.
void Remember(const KnownJob& job);

}  // namespace tlm::ctl
