// Who may fetch a job's results and read its output: one connection at a time, of the host that submitted it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "store/job_manager_state.h"

namespace tlm {

// The job if the session owns it or could take it over because nobody does; else null.
Job* TakeOwnership(JobManagerState& state, const Session& session, JobRef ref) REQUIRES(state.StateLock);

// The session's jobs belong to nobody from now on. They keep running.
void DisownJobs(JobManagerState& state, const Session& session) REQUIRES(state.StateLock);

// Counts output behind what the session has seen of its own job as a change of the job. Nothing happens unless the
// session listens. What lies beyond 4 GiB is not told any more.
void StepOutput(Session& session, Job& job, std::uint64_t outputSize);

// In bytes; 0 if there is none, or if it is no file proper.
std::uint64_t OutputSize(const Job& job);

// The job's output from the offset on, at most so many bytes.
std::string ReadOutputFrom(const Job& job, std::uint32_t offset, std::size_t limit);

}  // namespace tlm
