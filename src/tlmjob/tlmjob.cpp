#include "tlmjob/tlmjob.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/host.h"
#include "report/own_job.h"
#include "report/reporter.h"
#include "rpc/orpctrace.h"
#include "util/immortal.h"

namespace {

using tlm::report::Message, tlm::report::OwnJob, tlm::report::Reporter, tlm::platform::StopEvent;

struct Attachment {
  std::mutex Lock;                            // guards the next two
  std::shared_ptr<Reporter> CurrentReporter;  // null while the program is not attached
  bool Prepared = false;
  std::atomic<std::int32_t> Process = 0;  // that has attached last
  // From then on the job manager waits for the end and hears nothing more; its event goes with the attachment.
  std::atomic<bool> StopSeen = false;

  // What that process has forked has copies of lock and reporter, but not of the threads that work with them.
  bool IsCopy() const { return Process != 0 && Process != tlm::platform::ProcessId(); }
};

Attachment& TheAttachment() {
  static Attachment& attachment = tlm::MakeImmortal<Attachment>();
  return attachment;
}

// Once in the process.
void Prepare(Attachment& attachment, const OwnJob& job) {
  if (std::exchange(attachment.Prepared, true)) return;
  tlm::SetORpcOutput(nullptr);  // the program's output is its own
  tlm::report::TakeSettingsOfJobManager(job);
  std::atexit(tlmjob_detach);
}

std::optional<StopEvent> StopEventOf(const OwnJob& job) {
  const std::string name = tlm::report::StopEventName(job);
  // For the job's process itself, whatever stands there is of a former process of its id. The others share one event.
  return job.Process == tlm::platform::ProcessId() ? StopEvent::Create(name) : StopEvent::OpenOrCreate(name);
}

bool IsStopRequested(Reporter& reporter) {
  if (!reporter.StopRequested()) return false;
  TheAttachment().StopSeen = true;
  return true;
}

bool Attach() {
  Attachment& attachment = TheAttachment();
  if (attachment.IsCopy()) return false;
  const std::lock_guard hold(attachment.Lock);
  if (attachment.CurrentReporter || attachment.StopSeen) return true;
  const std::optional<OwnJob> job = tlm::report::FindOwnJob();
  if (!job) return false;
  Prepare(attachment, *job);
  attachment.CurrentReporter =
      std::make_shared<Reporter>(job->Process, tlm::report::Opening::Attach, StopEventOf(*job));
  attachment.Process = tlm::platform::ProcessId();
  return true;
}

// Null if the program is not attached.
std::shared_ptr<Reporter> CurrentReporter() {
  Attachment& attachment = TheAttachment();
  if (attachment.IsCopy()) return nullptr;
  const std::lock_guard hold(attachment.Lock);
  return attachment.CurrentReporter;
}

// An exception must not reach a caller in another language; memory is all that can be lacking.
template <class Action>
int Quietly(const Action& action) noexcept {
  try {
    return action() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

template <class Action>
int IfAttached(const Action& action) noexcept {
  return Quietly([&] {
    const std::shared_ptr<Reporter> reporter = CurrentReporter();
    return reporter && action(*reporter);
  });
}

void Put(const Message& message) noexcept {
  IfAttached([&](Reporter& reporter) {
    reporter.Put(message);
    return true;
  });
}

void Deliver(const Message& message) noexcept {
  IfAttached([&](Reporter& reporter) { return reporter.Deliver(message); });
}

}  // namespace

int tlmjob_attach() { return Quietly(Attach); }

void tlmjob_progress(int percent) { Put({.Progress = static_cast<std::uint32_t>(std::clamp(percent, 0, 100))}); }

void tlmjob_required_level(std::uint64_t type, std::uint64_t level) { Put({.Level = {{type, level}}}); }

void tlmjob_results_available() { Deliver({.ResultsAvailable = true}); }

void tlmjob_succeeded() { Deliver({.Succeeded = true}); }

void tlmjob_retry() { Deliver({.Retry = true}); }

int tlmjob_stop_requested() {
  if (TheAttachment().StopSeen) return TheAttachment().IsCopy() ? 0 : 1;
  return IfAttached(IsStopRequested);
}

void tlmjob_detach() {
  IfAttached([](Reporter& reporter) {
    reporter.Finish();
    IsStopRequested(reporter);
    Attachment& attachment = TheAttachment();
    const std::lock_guard hold(attachment.Lock);
    if (attachment.CurrentReporter.get() == &reporter) attachment.CurrentReporter.reset();
    return true;
  });
}
