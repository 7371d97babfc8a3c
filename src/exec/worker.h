// The threads that run jobs, and the rule that says which job may start.
#pragma once

#include <chrono>
#include <cstdint>

#include "store/job_manager_state.h"

namespace tlm {

// How many jobs could start now. A job of the first run class may always start once it is not blocked; a queued one
// only while the queue runs and fewer jobs run than its limit allows.
std::uint32_t StartableJobCount(const JobManagerState& state) REQUIRES(state.StateLock);

// Sees to it that a job that can start is taken at once: wakes one idle worker or, if there is none, starts one. One
// call does so for one job: each worker that takes one calls again. To be called by whatever lets a job start, except
// on a worker's thread at the end of its job: it looks for the next one itself.
void WakeWorkers(JobManagerState& state) REQUIRES(state.StateLock);

// Takes the first job, in order of creation, that may start, or none. It is marked Starting and holds a run slot before
// the lock is let go, so that no other worker can take it. A queue that has run empty stops.
JobRef TakeNextJob(JobManagerState& state) EXCLUDES(state.StateLock);

// After StopRequested: waits until no worker has a job any more, so that no process is left behind unattended, but not
// longer than the limit, and as long as others hold StateLock. False if the limit ended the wait.
bool AwaitWorkers(JobManagerState& state, std::chrono::milliseconds limit) EXCLUDES(state.StateLock);

}  // namespace tlm
