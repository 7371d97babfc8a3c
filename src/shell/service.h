// The process while it serves: how it can be asked to end from outside and, as a service, what its manager is told.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "platform/service.h"
#include "platform/signals.h"

namespace tlm {

// One for the process, which it outlives.
class Service {
 public:
  // Takes over what a service manager has given this process. To be called before any program is started.
  Service() : claim_(platform::ServiceManager::Claim()) {}

  // Serves until the server is stopped, by a client or from outside. Once in a process.
  void ServeInForeground();

  // Serves as a service if a service manager started this process; comes back at once if none did.
  void EnterDispatcher();

  // Of the process, once it has served.
  int ExitCode() const { return isConfigured_ ? EXIT_SUCCESS : EXIT_FAILURE; }

 private:
  bool TakeControls();
  void ServeToTheEnd();
  void HandleControl(platform::Control control);
  void Stop();
  bool AwaitEnd();
  void Report(platform::ServiceState state);

  const std::optional<platform::ServiceManager> claim_;
  // Set before there is another thread.
  const platform::ServiceManager* manager_ = nullptr;  // while this process is its service
  std::uint16_t port_ = 0;
  bool isConfigured_ = true;
  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by mutex_.
  platform::ServiceState state_ = platform::ServiceState::StartPending;
  bool served_ = false;
  bool stopping_ = false;
};

}  // namespace tlm
