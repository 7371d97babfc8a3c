#include "exec/completion.h"

#include "exec/launch.h"
#include "exec/retirement.h"
#include "exec/worker.h"
#include "jm/qorjmmsgstream.h"
#include "platform/thread.h"
#include "store/trace.h"
#include "util/mfile.h"

namespace tlm {

namespace {

constexpr int kSuccessCode = 4;  // in a message file
constexpr std::chrono::milliseconds kWatchInterval{1000};
constexpr std::chrono::milliseconds kReportPatience{900};

// A process that has reported success itself needs no message file; else the file decides.
void TakeMessageFile(Job& job, const std::string& directory) {
  QorJMMsgStream messages;
  const auto pid = static_cast<std::uint32_t>(job.Pid);
  if (!job.SuccessFlag) {
    job.SuccessFlag = messages.ReadMessage(kSuccessCode, nullptr, pid, directory, true);
  } else if (job.Pid != 0) {
    MFile(messages.MessageFileName(pid, directory)).Remove();
  }
}

// The process is gone: nobody can report for it any more.
void ForgetPid(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  const std::int32_t pid = job.Pid;
  job.Pid = 0;
  state.Jobs.Changed(job);
  state.Jobs.Detach(pid);
}

void SweepAfterKill(JobManagerState& state, std::int32_t killed) REQUIRES(state.StateLock) {
  if (killed != 0 && !state.SessionList.empty()) SweepJobs(state);
}

// Nothing follows a failure of such a job.
void CompleteAttached(JobManagerState& state, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  ReleaseRunSlot(state);
  WakeWorkers(state);
  Job* job = state.Jobs.Find(ref);
  if (!job) return;
  if (const auto directory = ClientDirectory::Open(state, job->WorkDir)) TakeMessageFile(*job, directory->Path());
  job->ResultFlags = (job->ResultFlags & ~kResultsAvailable) | (job->SuccessFlag ? kResultsAvailable : 0);
  job->Status = job->SuccessFlag ? Finished : Aborted;
  state.Jobs.Changed(*job);
  NotifyJobChange(state, *job, job->Status);
  const std::int32_t killed = job->Killed;
  ForgetPid(state, *job);
  SweepAfterKill(state, killed);
  WakeWorkers(state);
}

void FollowAttached(JobManagerState& state, JobRef ref) {
  std::shared_ptr<platform::Process> process;
  {
    const MAutoLock lock(state.StateLock);
    if (Job* job = state.Jobs.Find(ref)) {
      NotifyJobChange(state, *job, Queued);
      NotifyJobChange(state, *job, Running);
      process = ProcessHandle(state, job->Pid);
    }
  }
  for (auto pause = std::chrono::milliseconds(0);; platform::Sleep(pause)) {
    const bool hasEnded = !process || process->WaitForEnd(kWatchInterval, &state.Stopping);
    if (hasEnded) AwaitReports(state);
    const MAutoLock lock(state.StateLock);
    const Job* job = state.Jobs.Find(ref);
    std::uint32_t exitCode = 0;
    if (!job || state.StopRequested || (hasEnded && TestProcessEnd(state, job->Pid, exitCode))) break;
    if (hasEnded) pause = kEndPause;
  }
  CompleteAttached(state, ref);
}

}  // namespace

void AwaitReports(JobManagerState& state) { state.Served.Await(kReportPatience); }

void ReleaseRunSlot(JobManagerState& state) {
  if (state.RunningCount != 0) --state.RunningCount;
  if (state.DistributionStarted) state.PlaceComes.Raise();
}

void CompleteJob(JobManagerState& state, Job& job, const ClientDirectory* directory, bool isOverdue) {
  Trace(state, "Spawning job : Taskkey : (%s)\n", job.TaskKey.c_str());
  if (job.Status != LaunchFailed) {
    if (directory) TakeMessageFile(job, directory->Path());
    const bool good = job.SuccessFlag || (job.CompleteOnFailure && !isOverdue);
    if (good) job.ResultFlags |= kResultsAvailable;
    job.Status = good ? Finished : Aborted;
    state.Jobs.Changed(job);
  }
  Trace(state, "NOTIFY: Job %s Status %u Results Available %u\n", job.ResultStem.c_str(), job.Status, job.ResultFlags);
  NotifyJobChange(state, job, job.Status);
  if (job.Status != Finished) FailDependants(state, job);
  ReleaseRunSlot(state);
  const std::int32_t killed = job.Killed;
  ForgetPid(state, job);
  SweepAfterKill(state, killed);
}

void WatchAttachedProcess(JobManagerState& state, JobRef ref) {
  ++state.BusyWorkers;
  state.Threads.Start([&state, ref] {
    FollowAttached(state, ref);
    const MAutoLock lock(state.StateLock);
    if (--state.BusyWorkers == 0) state.WorkersDone.RaiseForAll();
  });
}

}  // namespace tlm
