#include "jm/peer.h"

#include <utility>

#include "platform/thread.h"

namespace tlm {

std::uint64_t Peer::Post(Work work) {
  const std::lock_guard lock(mutex_);
  if (!hasThread_) hasThread_ = platform::StartDetachedThread([self = shared_from_this()] { self->WorkLoop(); });
  if (closed_ || !hasThread_) return 0;
  waiting_.push_back(std::move(work));
  changed_.notify_all();
  return ++posted_;
}

bool Peer::Run(Work work, std::chrono::milliseconds patience) {
  const std::uint64_t number = Post(std::move(work));
  std::unique_lock lock(mutex_);
  const auto isOver = [&] { return closed_ || ended_ >= number; };
  return number != 0 && changed_.wait_for(lock, patience, isOver) && ended_ >= number;
}

bool Peer::IsIdle() const {
  const std::lock_guard lock(mutex_);
  return ended_ == posted_;
}

bool Peer::IsFresh() const {
  const std::lock_guard lock(mutex_);
  return ended_ == 0;
}

void Peer::Close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  waiting_.clear();
  changed_.notify_all();
}

void Peer::WorkLoop() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
    if (closed_) return;
    const Work work = std::move(waiting_.front());
    waiting_.pop_front();
    lock.unlock();
    try {
      work(client_);
    } catch (...) {  // Whatever went wrong, the next piece of work finds out for itself.
    }
    lock.lock();
    ++ended_;
    changed_.notify_all();
  }
}

}  // namespace tlm
