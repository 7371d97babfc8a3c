// What follows when the processes of a job have ended.
#pragma once

#include <chrono>

#include "store/confinement.h"
#include "store/job_manager_state.h"

namespace tlm {

// After the end of a process: returns once what it had told the server by then has been served, but not so late that
// the end would be told later than within a second.
void AwaitReports(JobManagerState& state) EXCLUDES(state.StateLock);
// Who has seen an end whose exit code is not there yet, as a debugger has it first, looks again after so long.
inline constexpr std::chrono::milliseconds kEndPause{10};

// Turns the end of the job's last process, or the failure to start one, into its final Status, by what the process
// reported or left in its message file. Gives the worker's run slot back. Null for a directory that was refused.
// A job that was ended for being overdue has failed unless it has reported success.
void CompleteJob(JobManagerState& state, Job& job, const ClientDirectory* directory, bool isOverdue)
    REQUIRES(state.StateLock);

// Gives back the run slot of a job, which may have left the table.
void ReleaseRunSlot(JobManagerState& state) REQUIRES(state.StateLock);

// Has a thread follow a process that was not started here to its end, and complete its job.
void WatchAttachedProcess(JobManagerState& state, JobRef ref) REQUIRES(state.StateLock);

}  // namespace tlm
