// What follows when the processes of a job have ended.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

// Turns the end of the job's last process, or the failure to start one, into its final Status, by what the process
// reported or left in its message file. Gives the worker's run slot back.
void CompleteJob(JobManagerState& state, Job& job) REQUIRES(state.StateLock);

// Gives back the run slot of a worker's job, which may have left the table.
void ReleaseRunSlot(JobManagerState& state) REQUIRES(state.StateLock);

// Follows a process that was not started here to its end and completes its job. The body of a thread of its own.
void WatchAttachedProcess(JobManagerState& state, JobRef ref) EXCLUDES(state.StateLock);

}  // namespace tlm
