#include "shell/service.h"

#include <chrono>
#include <cstdlib>

#include "exec/kill.h"
#include "jm/qorjmclient.h"
#include "platform/thread.h"
#include "shell/serve.h"

namespace tlm {

namespace {

using platform::Control;
using platform::ServiceState;

constexpr std::chrono::milliseconds kStopPatience{5000};
constexpr std::chrono::milliseconds kStopInterval{100};

}  // namespace

void Service::ServeInForeground() {
  // Without a thread for them, the signals go on ending the process outright.
  (void)TakeControls();
  ServeToTheEnd();
}

void Service::EnterDispatcher() {
  if (!claim_) return;
  manager_ = &*claim_;
  if (!TakeControls()) return;
  Report(ServiceState::StartPending);
  Report(ServiceState::Running);
  if (const auto watchdog = manager_->Watchdog()) SetHeartbeat(*watchdog, [this] { manager_->ReportAlive(); });
  ServeToTheEnd();
  Report(ServiceState::StopPending);
  Report(ServiceState::Stopped);
  // A control that is being handled ends with a report of its own.
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !stopping_; });
}

bool Service::TakeControls() {
  port_ = JobManagerPort();  // for good: the setting may change while the server runs
  return platform::HandleControls([this](Control control) { HandleControl(control); });
}

void Service::ServeToTheEnd() {
  isConfigured_ = Serve(port_);
  const std::lock_guard lock(mutex_);
  served_ = true;
  changed_.notify_all();
}

void Service::HandleControl(Control control) {
  {
    const std::lock_guard lock(mutex_);
    if (control == Control::Hangup && manager_) return manager_->Report(state_);
    stopping_ = true;
  }
  Stop();
  const std::lock_guard lock(mutex_);
  stopping_ = false;
  changed_.notify_all();
}

void Service::Stop() {
  Report(ServiceState::StopPending);
  // The server may not listen yet, and one that is stuck may not even let anyone connect.
  (void)platform::StartDetachedThread([port = port_] {
    while (!StopServing(port)) platform::Sleep(kStopInterval);
  });
  const bool ended = AwaitEnd();
  // Its thread cannot be waited for any longer, whatever locks it has.
  if (!ended) TerminateChildren();
  Report(ServiceState::Stopped);
  if (!ended) std::_Exit(0);
}

bool Service::AwaitEnd() {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kStopPatience, [this] { return served_; });
}

void Service::Report(ServiceState state) {
  const std::lock_guard lock(mutex_);
  state_ = state;
  if (manager_) manager_->Report(state);
}

}  // namespace tlm
