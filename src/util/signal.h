// How threads wait for a change that another one makes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace tlm {

// Counts changes. Who reads the number before it looks whether there is something to do, and then waits with that
// number, misses no change. Any thread may call, whatever locks it holds; but nobody should wait with one.
class Signal {
 public:
  std::uint64_t Number() const;
  // Counts one more, and wakes one of those that wait. None of the others is disturbed.
  void Raise();
  // The same, and wakes all.
  void RaiseForAll();
  // Waits until the number is another one, but not longer than the limit. False if it is still the same.
  bool WaitFor(std::uint64_t number, std::chrono::milliseconds limit);

 private:
  mutable std::mutex lock_;
  std::condition_variable changed_;
  std::uint64_t number_ = 0;
};

}  // namespace tlm
