// Waiting for a condition, with a generous limit, and how long something took.
#pragma once

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace tlm::test {
inline constexpr std::chrono::seconds kPatience{60};

// True as soon as the condition holds, false if it has not within the limit.
template <class Condition>
testing::AssertionResult Eventually(Condition condition, std::chrono::milliseconds limit = kPatience) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return testing::AssertionFailure() << "did not come to hold in time";
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return testing::AssertionSuccess();
}

template <class Action>
std::chrono::steady_clock::duration TimeOf(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - start;
}
}  // namespace tlm::test
