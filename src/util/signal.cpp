#include "util/signal.h"

namespace tlm {

std::uint64_t Signal::Number() const {
  const std::lock_guard hold(lock_);
  return number_;
}

void Signal::Raise() {
  const std::lock_guard hold(lock_);
  ++number_;
  changed_.notify_one();
}

void Signal::RaiseForAll() {
  const std::lock_guard hold(lock_);
  ++number_;
  changed_.notify_all();
}

bool Signal::WaitFor(std::uint64_t number, std::chrono::milliseconds limit) {
  std::unique_lock hold(lock_);
  return changed_.wait_for(hold, limit, [&] { return number_ != number; });
}

}  // namespace tlm
