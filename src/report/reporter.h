// Reports on a job to the job manager that runs it, by one connection.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/stop_event.h"
#include "report/mailbox.h"

namespace tlm::report {

// What a connection says first.
enum class Opening {
  Attach,   // attaches the job's process, so that a success from before counts no more
  Continue  // attaches only if the first answer tells that it is not; RequiredLevel has no answer
};

// The job manager may be waiting for the job to end on its stop event, and answers no call meanwhile. So the calls have
// a thread of their own, and whoever waits for them looks at the event. Nor does one wait for a job manager that has
// stopped answering; should it answer after all, it gets what was put. Any thread may call.
class Reporter {
 public:
  static constexpr std::chrono::milliseconds kPatience{60000};

  // The event may be missing. If the job manager cannot be reached, or does not answer within the patience, standard
  // error is told once.
  Reporter(std::int32_t jobProcess, Opening opening, std::optional<platform::StopEvent> stop,
           std::chrono::milliseconds patience = kPatience);

  // Does not wait.
  void Put(const Message& message) { mailbox_->Put(message); }
  // Returns when all messages are delivered, or never will be, or a stop is requested. True in the first case.
  bool Deliver(const Message& message);
  // The same for those that were put before, and the end of the connection. What is put later has no effect.
  bool Finish();

  bool StopRequested();

 private:
  bool Await(bool (Mailbox::*condition)(std::chrono::milliseconds));

  const std::chrono::milliseconds patience_;
  std::mutex stopLock_;
  std::optional<platform::StopEvent> stop_;  // guarded by stopLock_
  const std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>();
};

}  // namespace tlm::report
