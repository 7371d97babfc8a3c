#include "exec/kill.h"

#include <chrono>
#include <memory>
#include <set>

#include "exec/launch.h"
#include "exec/retirement.h"
#include "platform/stop_event.h"
#include "store/trace.h"

namespace tlm {

namespace {

using platform::Process;

constexpr std::chrono::milliseconds kPoliteWait{10000};

// False if it cannot be asked.
bool AskToEnd(JobManagerState& state, std::int32_t pid) REQUIRES(state.StateLock) {
  return state.KillViaEvent && platform::SetStopEvent(StopEventName(pid));
}

}  // namespace

std::int32_t KillProcess(JobManagerState& state, std::int32_t pid) {
  bool asked = false;
  std::shared_ptr<Process> process;
  {
    const MAutoLock lock(state.StateLock);
    process = ProcessHandle(state, pid);
    asked = process && AskToEnd(state, pid);
  }
  const bool endedByItself = asked && process->WaitForEnd(kPoliteWait);
  const MAutoLock lock(state.StateLock);
  if (process) {
    process->Terminate();  // also what an ended leader left of its group
    platform::RemoveStopEvent(StopEventName(pid));
  }
  return endedByItself ? kEndedOnStopEvent : kTerminated;
}

void KillProcess(JobManagerState& state, Job& job) {
  // At the server's end every worker stops its own process, side by side with the others.
  if (state.StopRequested) return;
  job.Killed = KillProcess(state, job.Pid);
  state.Jobs.Changed(job);
}

void KillWithoutWait(JobManagerState& state, Job& job) {
  const std::shared_ptr<Process> process = ProcessHandle(state, job.Pid);
  // Without an event nobody waits.
  if (state.StopRequested || !process || !AskToEnd(state, job.Pid)) return KillProcess(state, job);
  job.Killed = kEndedOnStopEvent;
  state.Jobs.Changed(job);
  state.Threads.Start([&state, process, ref = JobRef{job.Handle}] {
    if (process->WaitForEnd(kPoliteWait, &state.Stopping)) return;
    const MAutoLock lock(state.StateLock);
    if (state.StopRequested) return;  // its worker sees to it
    process->Terminate();
    if (Job* asked = state.Jobs.Find(ref)) {
      asked->Killed = kTerminated;
      state.Jobs.Changed(*asked);
    }
  });
}

bool RemoveJob(JobManagerState& state, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (!job) return false;
  if (job->Pid != 0) {
    KillProcess(state, *job);
  } else {
    EndWithoutProcess(state, *job);
    NotifyJobChange(state, *job, job->Status);
  }
  RecordRemovedHandle(state, ref);
  FailDependants(state, *job);
  SweepJobs(state);
  return true;
}

void TerminateChildren() {
  for (std::int32_t pid : Process::TerminateAll()) platform::RemoveStopEvent(StopEventName(pid));
}

void AbortAllJobs(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  const std::vector<JobRef> all = state.Jobs.All();
  std::set<JobRef> failed;
  for (JobRef ref : all) {
    Job* job = state.Jobs.Find(ref);
    if (!job) continue;
    Trace(state, "Aborting job %s\n", job->ResultStem.c_str());
    if (job->Pid != 0) {
      KillProcess(state, *job);
    } else {
      const bool leftToItsPeer = job->RemoteJob != 0 && job->Predecessor == 0 && job->CreatorJob == 0;
      if (!leftToItsPeer) EndWithoutProcess(state, *job);
      NotifyJobChange(state, *job, job->Status);
    }
    RecordRemovedHandle(state, ref);
    FailDependants(state, *job, failed);
  }
  if (!all.empty()) SweepJobs(state);
}

}  // namespace tlm
