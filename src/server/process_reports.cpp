// What a job's process says of itself. It names its job by its own process id, of which the low 32 bits count.
#include <cstdio>

#include "exec/completion.h"
#include "exec/launch.h"
#include "platform/thread.h"
#include "server/qorjmserver.h"
#include "store/submission.h"
#include "store/trace.h"

namespace tlm {

namespace {

std::int32_t PidOf(std::uint64_t processId) { return static_cast<std::int32_t>(processId); }

}  // namespace

std::uint64_t QorJMServer::AttachProcess(std::uint64_t processId, const std::string& command,
                                         const std::string& directory) {
  const std::int32_t pid = PidOf(processId);
  AwaitItsLaunch(state_, pid);
  const MAutoLock lock(state_.StateLock);
  const Attachment attachment = tlm::AttachProcess(state_, session_, pid, command, directory);
  const JobRef ref = attachment.Record.Handle;
  if (attachment.IsStranger) {
    HoldProcess(state_, pid);
    WatchAttachedProcess(state_, ref);
  }
  return ref;
}

bool QorJMServer::SetProgress(std::uint64_t processId, std::uint32_t value) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.FindAttached(PidOf(processId));
  if (!job) return false;
  const auto progress = static_cast<std::int32_t>(value);
  if (job->Progress == progress) return true;
  job->Progress = progress;
  const bool running = job->Status == Running;
  if (running) state_.ProgressPending = true;
  NotifyJobChange(state_, *job, running ? kProgressNotice : job->Status);
  return true;
}

bool QorJMServer::ResultsAvailable(std::uint64_t processId) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.FindAttached(PidOf(processId));
  if (!job) return false;
  Trace(state_, "Results Now Available\n");
  job->ResultFlags |= kResultsAvailable;
  state_.Jobs.Changed(*job);
  NotifyJobChange(state_, *job, job->Status);
  return true;
}

bool QorJMServer::JobSucceeded(std::uint64_t processId) {
  Trace(state_, "JobSucceeded %d\n", PidOf(processId));
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.FindAttached(PidOf(processId));
  if (job) job->SuccessFlag = true;
  return job != nullptr;
}

bool QorJMServer::RequestRetry(std::uint64_t processId) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.FindAttached(PidOf(processId));
  if (job) job->Retry = true;
  return job != nullptr;
}

void QorJMServer::RequiredLevel(std::uint64_t processId, std::uint64_t type, std::uint64_t level) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.FindAttached(PidOf(processId));
  if (!job) return;
  job->TaskType = type;
  job->TaskLevel = level;
  std::printf("plmjm -  QorJMServer::RequiredLevel - Received %u %u\n", static_cast<unsigned>(type),
              static_cast<unsigned>(level));
  NotifyJobChange(state_, *job, kLevelNotice);
}

}  // namespace tlm
