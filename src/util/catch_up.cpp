#include "util/catch_up.h"

#include <algorithm>
#include <utility>

namespace tlm {

void CatchUp::Open(std::function<void()> wake) {
  const std::lock_guard hold(lock_);
  wake_ = std::move(wake);
}

void CatchUp::Close() {
  const std::lock_guard hold(lock_);
  wake_ = nullptr;
  served_ = asked_.load();
  answered_.notify_all();
}

std::optional<std::uint64_t> CatchUp::Request() const {
  const std::uint64_t asked = asked_;
  if (asked == served_) return std::nullopt;
  return asked;
}

void CatchUp::Answer(std::uint64_t request) {
  const std::lock_guard hold(lock_);
  served_ = std::max(served_.load(), request);
  answered_.notify_all();
}

bool CatchUp::Await(std::chrono::milliseconds limit) {
  std::unique_lock hold(lock_);
  if (!wake_) return true;
  const std::uint64_t own = ++asked_;
  wake_();
  return answered_.wait_for(hold, limit, [&] { return served_ >= own; });
}

}  // namespace tlm
