#include "exec/queue.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "exec/worker.h"
#include "platform/thread.h"

namespace tlm {

namespace {

constexpr std::chrono::milliseconds kTimerInterval{15000};

void QueueTimerLoop(JobManagerState& state) {
  while (true) {
    {
      const MAutoLock lock(state.StateLock);
      if (state.StopRequested) return;
      // The start time stays: a queue that has run empty clears it.
      if (state.QueueStartTime != 0 && platform::SecondsSince1970() >= state.QueueStartTime) {
        state.QueueRunning = true;
        WakeWorkers(state);
      }
    }
    platform::Sleep(kTimerInterval);
  }
}

}  // namespace

void StartQueue(JobManagerState& state, std::uint64_t delay) {
  const MAutoLock lock(state.StateLock);
  state.QueueStartTime = 0;
  if (delay == kCancelStart) return;
  if (delay == 0) {
    state.QueueRunning = true;
    WakeWorkers(state);
    return;
  }
  const std::int64_t now = platform::SecondsSince1970();
  const auto longest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - now);
  state.QueueStartTime = now + static_cast<std::int64_t>(std::min(delay, longest));
  if (state.TimerStarted) return;
  state.Threads.Start([&state] { QueueTimerLoop(state); });
  state.TimerStarted = true;
}

bool StopQueue(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  const bool wasRunning = state.QueueRunning;
  state.QueueRunning = false;
  return wasRunning;
}

bool SetQueueLimit(JobManagerState& state, std::uint32_t limit) {
  if (limit == 0) return false;
  const MAutoLock lock(state.StateLock);
  state.QueueLimit = limit;
  WakeWorkers(state);
  return true;
}

}  // namespace tlm
