#include "report/mailbox.h"

#include <utility>

namespace tlm::report {

void Message::Join(const Message& later) {
  if (later.Progress) Progress = later.Progress;
  if (later.Level) Level = later.Level;
  Retry |= later.Retry;
  ResultsAvailable |= later.ResultsAvailable;
  Succeeded |= later.Succeeded;
}

void Mailbox::Put(const Message& message) {
  const std::lock_guard hold(lock_);
  if (!finished_) waiting_.Join(message);
  changed_.notify_all();
}

void Mailbox::Finish() {
  const std::lock_guard hold(lock_);
  finished_ = true;
  changed_.notify_all();
}

std::optional<Message> Mailbox::Fetch() {
  std::unique_lock hold(lock_);
  sending_ = false;
  changed_.notify_all();
  changed_.wait(hold, [this] { return finished_ || !waiting_.Empty(); });
  if (waiting_.Empty()) return std::nullopt;
  sending_ = true;
  sendingSince_ = std::chrono::steady_clock::now();
  return std::exchange(waiting_, Message());
}

void Mailbox::Close() {
  const std::lock_guard hold(lock_);
  closed_ = true;
  changed_.notify_all();
}

bool Mailbox::WaitUntilDelivered(std::chrono::milliseconds limit) {
  std::unique_lock hold(lock_);
  return changed_.wait_for(hold, limit, [this] { return closed_ || NothingIsLeft(); });
}

bool Mailbox::WaitUntilClosed(std::chrono::milliseconds limit) {
  std::unique_lock hold(lock_);
  return changed_.wait_for(hold, limit, [this] { return closed_; });
}

bool Mailbox::IsStuck(std::chrono::milliseconds limit) {
  const std::lock_guard hold(lock_);
  return sending_ && std::chrono::steady_clock::now() - sendingSince_ > limit;
}

bool Mailbox::AllDelivered() {
  const std::lock_guard hold(lock_);
  return NothingIsLeft();
}

}  // namespace tlm::report
