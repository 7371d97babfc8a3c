#include "tlmctl/interrupt.h"

#include <atomic>
#include <cstdlib>
#include <utility>

#include "platform/signals.h"
#include "platform/thread.h"
#include "tlmctl/exit_code.h"
#include "util/mmutex.h"

namespace tlm::ctl {

namespace {

std::atomic<bool> pending = false;
MMutex wordsLock;
std::function<void()> lastWords GUARDED_BY(wordsLock);

[[noreturn]] void EndNow() {
  {
    const MAutoLock lock(wordsLock);
    if (lastWords) lastWords();
  }
  std::quick_exit(kInterrupted);
}

}  // namespace

void CatchInterrupts(std::optional<std::chrono::milliseconds> patience) {
  // Not in a signal handler but on a thread of its own, which may start another.
  (void)platform::HandleControls([patience](platform::Control) {
    if (pending.exchange(true)) EndNow();
    if (!patience) return;
    (void)platform::StartDetachedThread([limit = *patience] {
      platform::Sleep(limit);
      if (pending) EndNow();
    });
  });
}

void SetLastWords(std::function<void()> say) {
  const MAutoLock lock(wordsLock);
  lastWords = std::move(say);
}

bool TakeInterrupt() { return pending.exchange(false); }

void EndIfInterrupted() {
  if (TakeInterrupt()) throw Failure{kInterrupted, "interrupted"};
}

}  // namespace tlm::ctl
