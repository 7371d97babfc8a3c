// How jobs end early.
#pragma once

#include <cstdint>

#include "store/job_manager_state.h"

namespace tlm {

// Stops the job's process: asks it by its stop event and gives it 10 seconds, or terminates it at once if there is no
// such event. Only Killed of the job changes; whoever follows the process sees its end and goes on from there. Does
// nothing once the server is ending.
void KillProcess(JobManagerState& state, Job& job) REQUIRES(state.StateLock);
// The same, but whoever calls does not wait: Killed is set at once, and what does not end when it is asked to is
// terminated later. Several processes are stopped side by side so.
void KillWithoutWait(JobManagerState& state, Job& job) REQUIRES(state.StateLock);
// The same as the first for a process that is followed by the caller. Gives what Killed becomes. A caller without
// StateLock finds it taken for moments only.
std::int32_t KillProcess(JobManagerState& state, std::int32_t pid);

// Kills or retires the job and what hangs on it. False if it is not in the table.
bool RemoveJob(JobManagerState& state, JobRef ref) EXCLUDES(state.PoolLock);

// Ends at once what was started here and still runs, for a server that can wait no longer; no job's process is started
// after it. Needs no lock, whoever holds one.
void TerminateChildren();

// Kills or retires every job.
void AbortAllJobs(JobManagerState& state) EXCLUDES(state.PoolLock);

}  // namespace tlm
