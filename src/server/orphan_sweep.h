// Clients that have gone without the end of their connection being seen.
#pragma once

#include "rpc/orpcthread.h"
#include "store/job_manager_state.h"

namespace tlm {

// Pings each session's client on its callback port, and gives up the sessions whose clients have gone. A session that
// is met for the first time is connected to; if that fails the exception of Connect ends the sweep, or, where
// Restrictions bound the time of a callback, its client is not called back any more. Runs on the thread
// of the loop, which may serve other calls meanwhile: any session may be gone afterwards.
void SweepOrphans(JobManagerState& state, ORpcThread& thread) EXCLUDES(state.StateLock);

}  // namespace tlm
