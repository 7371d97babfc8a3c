#include "tlmctl/interrupt.h"

#include <atomic>
#include <cstdlib>

#include "platform/signals.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

std::atomic<bool> pending = false;

}  // namespace

void CatchInterrupts() {
  (void)platform::HandleControls([](platform::Control) {
    if (pending.exchange(true)) std::quick_exit(kInterrupted);
  });
}

bool TakeInterrupt() { return pending.exchange(false); }

void EndIfInterrupted() {
  if (TakeInterrupt()) throw Failure{kInterrupted, "interrupted"};
}

}  // namespace tlm::ctl
