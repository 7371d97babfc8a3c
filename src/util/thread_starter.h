// Threads that start later rather than never.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace tlm {

// Any thread may call. Lives until the process ends once it is open.
class ThreadStarter {
 public:
  // Starts the thread that tries again what could not be started. False if the system has none to give.
  [[nodiscard]] bool Open();
  // Runs the body on a thread that nobody waits for: now or, if the system has none to give and this is open, within a
  // second of when it has. What the body throws ends its thread and nothing else.
  void Start(std::function<void()> body);

 private:
  void TryAgainAndAgain();

  std::mutex lock_;  // guards all below
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
};

}  // namespace tlm
