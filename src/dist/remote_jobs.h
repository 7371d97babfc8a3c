// The jobs that run on peers: how they get there, and how they are followed.
#pragma once

#include <memory>

#include "jm/peer.h"
#include "store/job_manager_state.h"

namespace tlm {

enum class Placement { Placed, Failed, UnderWay };

// Copies the job's input file to the peer and submits the job there. Under way: the peer takes its time, and will tell
// the job's fate itself; a job that cannot be placed then goes back to the queue. A job that was removed meanwhile is
// taken back from the peer. RemoteServer is the peer.
Placement PlaceOnPeer(JobManagerState& state, const std::shared_ptr<Peer>& peer, JobRef ref)
    EXCLUDES(state.StateLock, state.PoolLock);

// Asks every peer for its jobs, brings their output and results here and mirrors their states. A peer that cannot be
// asked any more is given up, and its jobs go back to the queue. One that is slow to answer is left to it.
void PollRemoteJobs(JobManagerState& state) EXCLUDES(state.StateLock, state.PoolLock);

}  // namespace tlm
