// Threads, and the passing of time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tlm::platform {

// Starts a thread that nobody waits for. False if the system has none to give. What the
// function throws ends the thread and nothing else.
[[nodiscard]] bool StartDetachedThread(std::function<void()> body);

// Before other threads start: they share few pools of memory, and large blocks go back to the system at once. Else each
// thread may come to keep for good what its largest job has needed.
void ShareMemoryPools();

void Sleep(std::chrono::milliseconds time);
void YieldTimeSlice();

std::int64_t SecondsSince1970();

struct LocalTime {
  int Day, Month, Year, Hour, Minute, Second;  // as people write them: the first month is 1
};
LocalTime LocalTimeNow();

}  // namespace tlm::platform
