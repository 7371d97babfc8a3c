// How finished jobs leave the table, and what becomes of the jobs that hang on one that failed.
#pragma once

#include <set>

#include "store/job_manager_state.h"

namespace tlm {

// Retires every job that nothing holds any more, a chain of predecessors from its end upward, and takes the removed
// jobs out of the table.
void SweepJobs(JobManagerState& state) REQUIRES(state.StateLock);

// The failure of the job runs down to all that name it as predecessor or creator, and on to theirs: what runs is
// killed, without a wait for its end, and what does not ends as Aborted. A job that hangs on several
// failed ones is failed once.
void FailDependants(JobManagerState& state, const Job& job) REQUIRES(state.StateLock);
// The same for several jobs, one call after the other: passes over those that were met before, and adds to them.
void FailDependants(JobManagerState& state, const Job& job, std::set<JobRef>& met) REQUIRES(state.StateLock);

// What RemoveJob, AbortAllJobs and a failed leader make of a job without a process.
void EndWithoutProcess(JobManagerState& state, Job& job) REQUIRES(state.StateLock);

}  // namespace tlm
