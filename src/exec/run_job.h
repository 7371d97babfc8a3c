// Runs the commands of one job, one after the other.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

// From the claim of the job to its completion, on a worker's thread. The job may leave the table meanwhile: its process
// is then followed to its end all the same, and the run slot given back. A StopRequested kills the process and leaves
// without completion.
void RunJob(JobManagerState& state, JobRef ref) EXCLUDES(state.StateLock);

// Lets every session look for new output of the job.
void ForwardOutput(JobManagerState& state, Job& job) REQUIRES(state.StateLock);

}  // namespace tlm
