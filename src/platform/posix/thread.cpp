#include "platform/thread.h"

#include <ctime>
#include <exception>
#include <malloc.h>
#include <thread>
#include <utility>

namespace tlm::platform {

bool StartDetachedThread(std::function<void()> body) {
  try {
    std::thread([run = std::move(body)] {
      try {
        run();
      } catch (...) {  // Nobody waits for it.
      }
    }).detach();
    return true;
  } catch (const std::exception&) {  // For want of memory, too.
    return false;
  }
}

void ShareMemoryPools() {
  mallopt(M_ARENA_MAX, 2);
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  mallopt(M_TRIM_THRESHOLD, 2 << 20);
}

void Sleep(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

void YieldTimeSlice() { std::this_thread::yield(); }

std::int64_t SecondsSince1970() { return std::time(nullptr); }

LocalTime LocalTimeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
  return {local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec};
}

}  // namespace tlm::platform
