// Watching a job to its end.
#pragma once

#include <cstdint>

#include "jm/qorjmclient.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

// Shows on standard output how the job goes until it has ended: in place on a terminal, else a line for each change. A
// job that leaves the server meanwhile is no failure unless a client removed it before its end. Throws Failure if there
// is no such job to begin with.
ExitCode FollowJob(QorJMClient& client, std::uint64_t handle);

}  // namespace tlm::ctl
