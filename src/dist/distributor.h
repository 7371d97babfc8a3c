// Where the jobs of the distributed class run: here, or on the least loaded peer.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

// Puts the job behind those that wait for a place. The pass that is under way does not look at it: one that a peer
// has lost must not go back to it at once.
void PushForDistribution(JobManagerState& state, JobRef ref) EXCLUDES(state.PoolLock);

// Has the waiting jobs placed now: starts the thread that does so and follows those on peers, or wakes it.
void StartDistribution(JobManagerState& state) REQUIRES(state.StateLock);

}  // namespace tlm
