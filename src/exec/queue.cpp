#include "exec/queue.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "exec/worker.h"
#include "platform/thread.h"

namespace tlm {

namespace {

constexpr std::chrono::seconds kTimerInterval{15};

// Every full second while a start is to come, so that a clock that is set meanwhile makes no difference.
std::chrono::milliseconds TimeToLook(std::int64_t startTime) {
  using std::chrono::milliseconds, std::chrono::seconds, std::chrono::system_clock;
  if (startTime <= platform::SecondsSince1970()) return kTimerInterval;
  // The count of seconds may lag behind the clock for a moment.
  constexpr milliseconds kLag{10};
  const auto intoSecond = system_clock::now().time_since_epoch() % seconds(1);
  return intoSecond < kLag ? kLag : std::chrono::ceil<milliseconds>(seconds(1) - intoSecond) + milliseconds(1);
}

void QueueTimerLoop(JobManagerState& state) {
  while (true) {
    const std::uint64_t number = state.QueueTimeSet.Number();
    std::chrono::milliseconds pause{};
    {
      const MAutoLock lock(state.StateLock);
      if (state.StopRequested) return;
      // The start time stays: a queue that has run empty clears it.
      if (state.QueueStartTime != 0 && platform::SecondsSince1970() >= state.QueueStartTime) {
        state.QueueRunning = true;
        WakeWorkers(state);
      }
      pause = TimeToLook(state.QueueStartTime);
    }
    state.QueueTimeSet.WaitFor(number, pause);
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
  if (state.TimerStarted) return state.QueueTimeSet.Raise();
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
