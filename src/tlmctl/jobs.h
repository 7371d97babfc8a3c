// What several sub-commands ask about jobs.
#pragma once

#include <cstdint>
#include <optional>

#include "jm/qorjmclient.h"
#include "tlmctl/connection.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

// The job as it stands; empty if the server has none of this handle. A finished job whose results were taken leaves the
// server by being read: then this is the last that is heard of it.
std::optional<Task> FetchJob(QorJMClient& client, std::uint64_t handle);

// The same; throws Failure if there is no such job.
Task FetchKnownJob(QorJMClient& client, std::uint64_t handle);

Failure UnknownJob(std::uint64_t handle);

// The server gives output and results to nobody but the job's owner, which this client becomes if there is none. Throws
// Failure if there is another, or no such job.
void BecomeOwner(QorJMClient& client, const ServerOptions& server, std::uint64_t handle);

bool HasEnded(const Task& task);
// True for a job that has ended with success.
bool HasSucceeded(const Task& task);

}  // namespace tlm::ctl
