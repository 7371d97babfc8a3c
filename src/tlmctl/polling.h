// Waiting for what has to be asked for.
#pragma once

#include <chrono>

#include "platform/thread.h"

namespace tlm::ctl {

// Asks again and again, the interval lying between. False if it has not become true within the patience.
template <class Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds interval, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    platform::Sleep(interval);
  }
  return true;
}

}  // namespace tlm::ctl
