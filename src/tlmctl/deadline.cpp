#include "tlmctl/deadline.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "platform/thread.h"

namespace tlm::ctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kLongestSleep = std::chrono::hours(1);

void SleepUntil(steady_clock::time_point end) {
  for (auto now = steady_clock::now(); now < end; now = steady_clock::now()) {
    platform::Sleep(std::min(std::chrono::ceil<milliseconds>(end - now), kLongestSleep));
  }
}

}  // namespace

Deadline::Deadline(steady_clock::time_point end, std::function<int()> tell) {
  (void)platform::StartDetachedThread([end, tell = std::move(tell), hasCome = hasCome_] {
    SleepUntil(end);
    if (!hasCome->exchange(true)) std::quick_exit(tell());
  });
}

void Deadline::CallOff() {
  if (std::exchange(isOff_, true) || !hasCome_->exchange(true)) return;
  while (true) platform::Sleep(kLongestSleep);  // the other thread is about to end the program
}

}  // namespace tlm::ctl
