#include "report/reporter.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

#include "jm/qorjmclient.h"
#include "platform/file_system.h"
#include "platform/host.h"
#include "platform/signals.h"
#include "platform/thread.h"

namespace tlm::report {
namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr std::chrono::milliseconds kStopInterval{50};

// The calls for one process of a job.
class Caller {
 public:
  Caller(std::int32_t jobProcess, Opening opening) : id_(static_cast<std::uint64_t>(jobProcess)) {
    client_.Connect(kHost, 0);  // at the port by which a server goes here
    if (opening == Opening::Attach) Attach();
  }

  void Say(const Message& message) {
    if (message.Level) client_.RequiredLevel(id_, message.Level->Type, message.Level->Level);
    if (message.Progress) Call([&] { return client_.SetProgress(id_, *message.Progress); });
    if (message.Retry) Call([&] { return client_.RequestRetry(id_); });
    if (message.ResultsAvailable) Call([&] { return client_.ResultsAvailable(id_); });
    if (message.Succeeded) Call([&] { return client_.JobSucceeded(id_); });
  }

 private:
  // Once for a connection: the job manager would take a process whose job has gone for a new one.
  void Attach() {
    if (attached_) return;
    attached_ = true;
    client_.AttachProcess(id_, platform::ExecutablePath(), platform::CurrentDirectory());
  }

  template <class Function>
  void Call(const Function& call) {
    if (call() || attached_) return;
    Attach();
    call();
  }

  const std::uint64_t id_;
  QorJMClient client_;
  bool attached_ = false;
};

void ComplainOnce(Mailbox& mailbox) {
  if (!mailbox.MayComplain()) return;
  std::fprintf(stderr, "%s: no job manager to report to, going on without\n",
               std::filesystem::path(platform::ExecutablePath()).filename().c_str());
}

void Serve(Mailbox& mailbox, std::int32_t jobProcess, Opening opening) {
  platform::LeaveSignalsToOtherThreads();
  try {
    Caller caller(jobProcess, opening);
    while (const std::optional<Message> message = mailbox.Fetch()) caller.Say(*message);
  } catch (...) {
    // The calls fail with different kinds of exceptions, which all mean the same.
    ComplainOnce(mailbox);
  }
  mailbox.Close();
}

}  // namespace

Reporter::Reporter(std::int32_t jobProcess, Opening opening, std::optional<platform::StopEvent> stop,
                   std::chrono::milliseconds patience)
    : patience_(patience), stop_(std::move(stop)) {
  const bool started = platform::StartDetachedThread(
      [mailbox = mailbox_, jobProcess, opening] { Serve(*mailbox, jobProcess, opening); });
  if (!started) mailbox_->Close();
}

bool Reporter::Deliver(const Message& message) {
  mailbox_->Put(message);
  return Await(&Mailbox::WaitUntilDelivered);
}

bool Reporter::Finish() {
  mailbox_->Finish();
  return Await(&Mailbox::WaitUntilClosed);
}

bool Reporter::Await(bool (Mailbox::*condition)(std::chrono::milliseconds)) {
  while (!(*mailbox_.*condition)(kStopInterval) && !StopRequested()) {
    if (!mailbox_->IsStuck(patience_)) continue;
    ComplainOnce(*mailbox_);
    break;
  }
  return mailbox_->AllDelivered();
}

bool Reporter::StopRequested() {
  const std::lock_guard hold(stopLock_);
  return stop_ && stop_->IsSet();
}

}  // namespace tlm::report
