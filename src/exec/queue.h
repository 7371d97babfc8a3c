// Starting and stopping the queue.
#pragma once

#include <cstdint>

#include "store/job_manager_state.h"

namespace tlm {

inline constexpr std::uint64_t kCancelStart = ~std::uint64_t{0};

// Delay 0 starts the queue now, kCancelStart gives up a pending start, and any other delay, in seconds, starts it that
// much later.
void StartQueue(JobManagerState& state, std::uint64_t delay) EXCLUDES(state.StateLock);
// False if it did not run. A pending start stays, and what runs goes on.
bool StopQueue(JobManagerState& state) EXCLUDES(state.StateLock);
// False, without effect, for 0.
bool SetQueueLimit(JobManagerState& state, std::uint32_t limit) EXCLUDES(state.StateLock);

}  // namespace tlm
