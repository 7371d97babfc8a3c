#include "util/thread_starter.h"

#include <chrono>
#include <utility>

#include "platform/thread.h"

namespace tlm {

namespace {
constexpr std::chrono::milliseconds kPause{1000};
}

bool ThreadStarter::Open() {
  return platform::StartDetachedThread([this] { TryAgainAndAgain(); });
}

void ThreadStarter::Start(std::function<void()> body) {
  if (platform::StartDetachedThread(body)) return;
  const std::lock_guard hold(lock_);
  waiting_.push_back(std::move(body));
  changed_.notify_all();
}

void ThreadStarter::TryAgainAndAgain() {
  while (true) {
    std::unique_lock hold(lock_);
    changed_.wait(hold, [this] { return !waiting_.empty(); });
    while (!waiting_.empty() && platform::StartDetachedThread(waiting_.front())) waiting_.pop_front();
    const bool isOutOfThreads = !waiting_.empty();
    hold.unlock();
    if (isOutOfThreads) platform::Sleep(kPause);
  }
}

}  // namespace tlm
