// A server some of whose calls to the system fail: which, its test says in memory that both share.
#pragma once

#include <atomic>
#include <cstdint>

namespace tlm::test {
// The variable with the path of the file that holds it.
inline constexpr char kFailingCalls[] = "FAILING_CALLS";

struct FailingCalls {
  std::atomic<std::int64_t> Left;   // calls up to the one that fails, with it; none fails when it is not positive
  std::atomic<std::uint32_t> Kind;  // which of its failures a call shows, counted round
  std::atomic<std::int64_t> Clock;  // seconds by which the time of day is off
  char Failed[16];                  // name of the last call that failed
};
}  // namespace tlm::test
