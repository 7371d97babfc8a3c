#include "heat2d/job_manager_reporter.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "jm/qorjmclient.h"
#include "libtsenv/runtime_identity.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/host.h"
#include "platform/stop_event.h"
#include "platform/thread.h"

namespace heat2d {
namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr std::chrono::milliseconds kStopInterval{50};

// What is to be said to the job manager.
struct Message {
  std::optional<std::uint32_t> Progress = std::nullopt;
  bool ResultsAvailable = false;
  bool Succeeded = false;
  bool Empty() const { return !Progress && !ResultsAvailable && !Succeeded; }
};

// Between the analysis and the thread that talks to the job manager. Lives as long as the later of the two.
class Mailbox {
 public:
  // Joins with what has not been fetched yet: of several percentages only the latest is sent.
  void Put(const Message& message) {
    const std::lock_guard hold(lock_);
    if (message.Progress) waiting_.Progress = message.Progress;
    waiting_.ResultsAvailable |= message.ResultsAvailable;
    waiting_.Succeeded |= message.Succeeded;
    changed_.notify_all();
  }
  // No more messages come.
  void Finish() {
    const std::lock_guard hold(lock_);
    finished_ = true;
    changed_.notify_all();
  }
  // The sender's side. Its return says that the message before was delivered. Empty once all were, after Finish.
  std::optional<Message> Fetch() {
    std::unique_lock hold(lock_);
    sending_ = false;
    changed_.notify_all();
    changed_.wait(hold, [this] { return finished_ || !waiting_.Empty(); });
    if (waiting_.Empty()) return std::nullopt;
    sending_ = true;
    return std::exchange(waiting_, Message());
  }
  // The sender is no more.
  void Close() {
    const std::lock_guard hold(lock_);
    closed_ = true;
    changed_.notify_all();
  }
  // True if everything was delivered, or nothing ever will be.
  bool WaitUntilDelivered(std::chrono::milliseconds limit) {
    return WaitFor(limit, [this] { return waiting_.Empty() && !sending_; });
  }
  bool WaitUntilClosed(std::chrono::milliseconds limit) {
    return WaitFor(limit, [] { return false; });
  }

 private:
  template <class Condition>
  bool WaitFor(std::chrono::milliseconds limit, const Condition& condition) {
    std::unique_lock hold(lock_);
    return changed_.wait_for(hold, limit, [&] { return closed_ || condition(); });
  }

  std::mutex lock_;  // guards all below
  std::condition_variable changed_;
  Message waiting_;
  bool sending_ = true;  // until the first Fetch: attaching counts
  bool finished_ = false;
  bool closed_ = false;
};

void TalkToJobManager(Mailbox& mailbox, const std::string& command) {
  tlm::QorJMClient client;
  client.Connect(kHost, 0);  // at the port by which a server goes here
  const auto id = static_cast<std::uint64_t>(tlm::platform::ProcessId());
  client.AttachProcess(id, command, tlm::platform::CurrentDirectory());
  while (const std::optional<Message> message = mailbox.Fetch()) {
    if (message->Progress) client.SetProgress(id, *message->Progress);
    if (message->ResultsAvailable) client.ResultsAvailable(id);
    if (message->Succeeded) client.JobSucceeded(id);
  }
}

// The job manager may be waiting for this process to end on its stop event, and answers no call meanwhile. So the calls
// have a thread of their own, and whoever waits for them looks at the event.
class JobManagerReporter final : public Reporter {
 public:
  JobManagerReporter(const std::string& command, std::ostream& errors)
      : stop_(tlm::platform::StopEvent::Create(tlm::Identity().RUNTIME_JM_VERSION + '_' +
                                               std::to_string(tlm::platform::ProcessId()))) {
    const bool started = tlm::platform::StartDetachedThread([mailbox = mailbox_, command, &errors] {
      try {
        TalkToJobManager(*mailbox, command);
      } catch (...) {
        // The calls fail with different kinds of exceptions, which all mean the same.
        errors << "heat2d: no job manager to report to, going on without\n" << std::flush;
      }
      mailbox->Close();
    });
    if (!started) mailbox_->Close();
  }

  ~JobManagerReporter() override {
    mailbox_->Finish();
    while (!mailbox_->WaitUntilClosed(kStopInterval) && !StopRequested()) {
    }
  }

  void Progress(std::uint32_t percent) override { mailbox_->Put({.Progress = percent}); }
  void ResultsAvailable() override { Deliver({.ResultsAvailable = true}); }
  void Succeeded() override { Deliver({.Succeeded = true}); }
  bool StopRequested() override { return stop_ && stop_->IsSet(); }

 private:
  void Deliver(const Message& message) {
    mailbox_->Put(message);
    while (!mailbox_->WaitUntilDelivered(kStopInterval) && !StopRequested()) {
    }
  }

  std::optional<tlm::platform::StopEvent> stop_;
  const std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>();
};

}  // namespace

std::unique_ptr<Reporter> MakeJobManagerReporter(const std::string& command, std::ostream& errors) {
  // Port and stop event have the names of the server's product, which it tells its jobs.
  tlm::DetectClient(tlm::platform::GetVariable("TSJM_CLIENT").value_or("") + "jm");
  return std::make_unique<JobManagerReporter>(command, errors);
}

}  // namespace heat2d
