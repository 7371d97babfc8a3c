#include "exec/retirement.h"

#include <set>
#include <vector>

#include "exec/kill.h"
#include "exec/worker.h"
#include "store/trace.h"

namespace tlm {

namespace {

// Goes up the chain of predecessors, as far as each is free to go. A released job stays retirable, but goes once only.
void RetireJob(JobManagerState& state, Job* job, std::set<JobRef>& retired) REQUIRES(state.StateLock) {
  while (job && state.Jobs.IsRetirable(*job) && retired.insert(job->Handle).second) {
    Trace(state, "Deleting job from server [%s] status[%u]\n", job->InputFile.c_str(), job->Status);
    job->Status = Removed;
    state.Jobs.Changed(*job);
    NotifyJobChange(state, *job, Removed);
    Job* predecessor = state.Jobs.Find(job->Predecessor);
    if (predecessor) {
      --predecessor->Dependents;
      state.Jobs.Changed(*predecessor);
    }
    job = predecessor;
  }
}

// The peer of a job that runs there is told when it has time; whether it hears of it shows in the polling.
void StopRunning(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  if (job.RemoteJob == 0) return KillWithoutWait(state, job);
  if (job.RemoteServer) job.RemoteServer->Post([ref = job.RemoteJob](QorJMClient& client) { client.RemoveJob(ref); });
  job.Killed = kTerminated;
  state.Jobs.Changed(job);
}

// The first follower comes to lie on top.
void PushFollowers(const JobManagerState& state, JobRef leader, std::vector<JobRef>& pending)
    REQUIRES(state.StateLock) {
  const std::vector<JobRef> followers = state.Jobs.FollowersOf(leader);
  pending.insert(pending.end(), followers.rbegin(), followers.rend());
}

}  // namespace

void SweepJobs(JobManagerState& state) {
  const std::vector<JobRef> retirable = state.Jobs.Retirable().All();
  std::set<JobRef> retired;
  for (JobRef ref : retirable) RetireJob(state, state.Jobs.Find(ref), retired);
  const std::vector<JobRef> removed = state.Jobs.RemovedJobs().All();
  for (JobRef ref : removed) state.Jobs.Erase(ref);
  if (!removed.empty()) WakeWorkers(state);  // for what had waited for one of these
}

void EndWithoutProcess(JobManagerState& state, Job& job) {
  job.Status = job.Status == Finished || job.Status == Removed ? Removed : Aborted;
  state.Jobs.Changed(job);
}

void FailDependants(JobManagerState& state, const Job& job) {
  std::set<JobRef> met;
  FailDependants(state, job, met);
}

void FailDependants(JobManagerState& state, const Job& job, std::set<JobRef>& met) {
  // Depth first and in table order, without recursion: a chain may be as long as the table.
  std::vector<JobRef> pending;
  PushFollowers(state, job.Handle, pending);
  while (!pending.empty()) {
    Job* follower = state.Jobs.Find(pending.back());
    pending.pop_back();
    if (!follower || !met.insert(follower->Handle).second) continue;
    if (follower->Status == Running) {
      StopRunning(state, *follower);
      continue;
    }
    EndWithoutProcess(state, *follower);
    NotifyJobChange(state, *follower, follower->Status);
    PushFollowers(state, follower->Handle, pending);
  }
}

}  // namespace tlm
