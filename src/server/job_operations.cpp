// The operations on jobs.
#include "dist/distributor.h"
#include "exec/kill.h"
#include "exec/launch.h"
#include "exec/retirement.h"
#include "exec/worker.h"
#include "server/qorjmserver.h"
#include "store/confinement.h"
#include "store/ownership.h"
#include "store/submission.h"
#include "store/trace.h"

namespace tlm {

bool QorJMServer::MaySubmit(const Submission& submission) {
  if (!HasRoom(state_)) {
    Trace(state_, "Refused a job: no room on the disk\n");
    return false;
  }
  if (!state_.Restrictions.Confined) return true;
  if (submission.ResultStem.find('/') != std::string::npos) {
    Trace(state_, "Refused a job with results in %s\n", submission.ResultStem.c_str());
    return false;
  }
  return PinForClient(state_, ServerDirectory(session_, submission.WorkDir)).has_value();
}

std::uint64_t QorJMServer::SubmitJob(const Submission& submission) {
  const MAutoLock lock(state_.StateLock);
  if (session_.InstallPath.empty()) throw 0;
  if (!MaySubmit(submission)) return 0;
  Job* job = AddSubmittedJob(state_, session_, submission);
  if (!job) return 0;
  NotifyJobChange(state_, *job, Queued);
  if (job->RunClass == kRunDistributed) {
    PushForDistribution(state_, job->Handle);
    StartDistribution(state_);
  } else {
    WakeWorkers(state_);
  }
  return job->Handle;
}

bool QorJMServer::GetJob(std::uint64_t handle, Task& task) {
  const MAutoLock lock(state_.StateLock);
  const Job* job = state_.Jobs.Find(handle);
  if (!job) return false;
  const std::uint64_t known = task.UpdateTimestamp;
  task = *job;
  if (state_.ProgressPending) {
    task.Status = kProgressNotice;
    state_.ProgressPending = false;
  }
  if (!state_.Jobs.Find(task.Predecessor)) task.Predecessor = 0;
  if (state_.Jobs.IsRetirable(*job)) SweepJobs(state_);
  return known < task.UpdateTimestamp;
}

std::uint32_t QorJMServer::GetJobCount() {
  const MAutoLock lock(state_.StateLock);
  return StartableJobCount(state_) + state_.RunningCount;
}

void QorJMServer::ListJobs(HandleList& handles) {
  const MAutoLock lock(state_.StateLock);
  const std::vector<JobRef> all = state_.Jobs.All();
  handles.insert(handles.end(), all.begin(), all.end());
}

void QorJMServer::ListRemovedJobs(HandleList& handles) {
  const MAutoLock lock(state_.StateLock);
  const MAutoLock poolLock(state_.PoolLock);
  handles.insert(handles.end(), state_.RemovedHandles.begin(), state_.RemovedHandles.end());
}

void QorJMServer::ReleaseJob(std::uint64_t handle) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.Find(handle);
  if (!job) return;
  job->RemoveWhenDone = true;
  state_.Jobs.Changed(*job);
}

bool QorJMServer::RemoveJob(std::uint64_t handle) { return tlm::RemoveJob(state_, handle); }

bool QorJMServer::AbortAllJobs() {
  if (!MayAdminister("AbortAllJobs")) return false;
  tlm::AbortAllJobs(state_);
  return true;
}

bool QorJMServer::SetJobPriority(std::uint64_t handle, std::uint32_t priority) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.Find(handle);
  if (!job) return false;
  job->Priority = priority;
  ApplyPriority(state_, job->Pid, priority);
  return true;
}

bool QorJMServer::SetDefaultPriority(std::uint32_t priority) {
  const MAutoLock lock(state_.StateLock);
  state_.DefaultPriority = priority;
  return true;
}

std::uint32_t QorJMServer::GetDefaultPriority() {
  const MAutoLock lock(state_.StateLock);
  return state_.DefaultPriority;
}

bool QorJMServer::TakeOwnership(std::uint64_t handle) {
  const MAutoLock lock(state_.StateLock);
  return tlm::TakeOwnership(state_, session_, handle) != nullptr;
}

void QorJMServer::WatchOutput(std::uint64_t handle, std::uint32_t offset) {
  const MAutoLock lock(state_.StateLock);
  Job* job = state_.Jobs.Find(handle);
  if (!job || !session_.Listening || job->OutFile.empty()) return;
  tlm::TakeOwnership(state_, session_, handle);
  session_.WatchOffsets[handle] = offset;
  StepOutput(session_, *job, OutputSize(*job));
}

void QorJMServer::ReadOutput(std::uint64_t handle, std::uint32_t offset, std::string& text) {
  const MAutoLock lock(state_.StateLock);
  const Job* job = tlm::TakeOwnership(state_, session_, handle);
  // What one string cannot carry the client fetches from its new offset.
  if (job && text.size() < kMaxStringLength) text += ReadOutputFrom(*job, offset, kMaxStringLength - text.size());
}

}  // namespace tlm
