#include "platform/signals.h"

#include <csignal>
#include <utility>

#include "platform/thread.h"

namespace tlm::platform {

namespace {

bool IsIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

void LetWritesFail() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

void LeaveSignalsToOtherThreads() {
  sigset_t signals;
  sigfillset(&signals);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool HandleControls(std::function<void(Control)> handler) {
  sigset_t signals;
  sigset_t former;
  sigemptyset(&signals);
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
    if (!IsIgnored(signal)) sigaddset(&signals, signal);
  }
  // Every later thread is born with this mask, so that the signals wait for the one that asks for them.
  pthread_sigmask(SIG_BLOCK, &signals, &former);
  const bool started = StartDetachedThread([signals, handle = std::move(handler)] {
    for (int signal = 0; sigwait(&signals, &signal) == 0;) handle(signal == SIGHUP ? Control::Hangup : Control::Stop);
  });
  if (!started) pthread_sigmask(SIG_SETMASK, &former, nullptr);
  return started;
}

}  // namespace tlm::platform
