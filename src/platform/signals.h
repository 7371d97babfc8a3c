// Signals that would else end the process.
#pragma once

#include <functional>

namespace tlm::platform {

// Writing to a pipe or terminal that nobody reads any more, or beyond the largest size that this process's files may
// have, fails from now on like any other write.
void LetWritesFail();

// From now on the calling thread is not the one that a signal to the process interrupts.
void LeaveSignalsToOtherThreads();

enum class Control {
  Stop,   // the service manager, or a person, wants the process to end
  Hangup  // the terminal has gone
};

// From now on the process is not ended by such a wish; it is handed to `handler`, which does not throw, on a thread of
// its own, one after the other. A signal that this process was started to ignore stays ignored. To be called while
// there is no other thread. False if the system has no thread to give; then nothing has changed.
[[nodiscard]] bool HandleControls(std::function<void(Control)> handler);

}  // namespace tlm::platform
