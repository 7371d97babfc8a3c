#include "dist/distributor.h"

#include <algorithm>
#include <chrono>

#include "dist/remote_jobs.h"
#include "dist/server_pool.h"
#include "exec/worker.h"
#include "platform/thread.h"
#include "store/trace.h"

namespace tlm {

namespace {

constexpr std::chrono::milliseconds kPassInterval{1000};

// 0 if none waits.
JobRef PopWaiting(JobManagerState& state) {
  const MAutoLock lock(state.PoolLock);
  if (state.DistributionQueue.empty()) return 0;
  const JobRef ref = state.DistributionQueue.front();
  state.DistributionQueue.pop_front();
  return ref;
}

// Jobs that run or could, less those whose processes only wait for the jobs that they have submitted.
std::uint32_t LocalLoad(const JobManagerState& state) REQUIRES(state.StateLock) {
  const auto lite = static_cast<std::uint32_t>(state.Jobs.LiteCount());
  return state.RunningCount - std::min(lite, state.RunningCount) + StartableJobCount(state);
}

enum class Choice { Done, Wait, AskPeers };

Choice PlaceHere(JobManagerState& state, JobRef ref, const StringList& pool) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (!job || job->Status != Queued || job->RemoteServer) return Choice::Done;
  Trace(state, "Distributing job %s", job->ResultStem.c_str());
  if (state.Jobs.IsBlocked(*job)) {
    Trace(state, "...predecessor not complete\n");
    return Choice::Wait;
  }
  if (LocalLoad(state) < state.LocalLimit) {
    Trace(state, " to localhost\n");
    job->RunClass = kRunAtOnce;
    state.Jobs.Changed(*job);
    WakeWorkers(state);
    return Choice::Done;
  }
  Trace(state, pool.empty() ? "-NO DIST SERVERS\n" : "\n");
  return pool.empty() ? Choice::Wait : Choice::AskPeers;
}

// False if the job has to wait for a later pass.
bool DistributeJob(JobManagerState& state, JobRef ref, const StringList& pool) {
  const Choice choice = PlaceHere(state, ref, pool);
  if (choice != Choice::AskPeers) return choice == Choice::Done;
  const std::shared_ptr<Peer> peer = SelectBestServer(state, pool);
  return peer && PlaceOnPeer(state, peer, ref) != Placement::Failed;
}

void TraceQueueLength(JobManagerState& state, std::size_t& traced) {
  std::size_t length = 0;
  {
    const MAutoLock lock(state.PoolLock);
    length = state.DistributionQueue.size();
  }
  if (length != traced) Trace(state, "%d Dist Jobs\n", static_cast<int>(length));
  traced = length;
}

// Places jobs until one cannot be placed, which is given back.
JobRef PlaceWaitingJobs(JobManagerState& state, const StringList& pool) {
  while (const JobRef ref = PopWaiting(state)) {
    if (!DistributeJob(state, ref, pool)) return ref;
  }
  return 0;
}

// False once the server ends.
bool RunPass(JobManagerState& state, std::size_t& traced) {
  StringList pool;
  {
    const MAutoLock lock(state.StateLock);
    if (state.StopRequested) return false;
    pool = state.ServerPool;
  }
  TraceQueueLength(state, traced);
  const JobRef kept = PlaceWaitingJobs(state, pool);
  PollRemoteJobs(state);
  if (kept != 0) PushForDistribution(state, kept);
  return true;
}

void DistributionLoop(JobManagerState& state) {
  std::size_t traced = 0;
  while (RunPass(state, traced)) platform::Sleep(kPassInterval);
}

}  // namespace

void PushForDistribution(JobManagerState& state, JobRef ref) {
  const MAutoLock lock(state.PoolLock);
  state.DistributionQueue.push_back(ref);
}

void StartDistribution(JobManagerState& state) {
  if (state.DistributionStarted) return;
  state.Threads.Start([&state] { DistributionLoop(state); });
  state.DistributionStarted = true;
}

}  // namespace tlm
