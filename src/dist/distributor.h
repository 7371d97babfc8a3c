// Where the jobs of the distributed class run: here, or on the least loaded peer.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

// Puts the job behind those that wait for a place.
void PushForDistribution(JobManagerState& state, JobRef ref) EXCLUDES(state.PoolLock);

// Starts the thread that places the waiting jobs and follows those on peers, unless it runs already.
void StartDistribution(JobManagerState& state) REQUIRES(state.StateLock);

}  // namespace tlm
