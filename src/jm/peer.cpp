#include "jm/peer.h"

#include <utility>

#include "platform/thread.h"

namespace tlm {

std::uint64_t Peer::Post(Work work) {
  const std::lock_guard lock(mutex_);
  if (closed_) return 0;
  if (!hasThread_) hasThread_ = platform::StartDetachedThread([self = shared_from_this()] { self->WorkLoop(); });
  if (!hasThread_) return 0;
  waiting_.push_back(std::move(work));
  changed_.notify_all();
  return ++posted_;
}

bool Peer::Await(std::uint64_t number, std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return ended_ >= number; });
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
  changed_.notify_all();
}

void Peer::WorkLoop() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    if (closed_) client_.Disconnect();
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
