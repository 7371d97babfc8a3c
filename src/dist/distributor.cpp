#include "dist/distributor.h"

#include <algorithm>
#include <chrono>

#include "dist/remote_jobs.h"
#include "dist/server_pool.h"
#include "exec/worker.h"
#include "store/trace.h"

namespace tlm {

namespace {

using Clock = std::chrono::steady_clock;

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

bool HasRoomHere(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  return LocalLoad(state) < state.LocalLimit;
}

enum class Choice { Done, Blocked, NoRoom, AskPeers };

Choice PlaceHere(JobManagerState& state, JobRef ref, const StringList& pool) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (!job || job->Status != Queued || job->RemoteServer) return Choice::Done;
  Trace(state, "Distributing job %s", job->ResultStem.c_str());
  if (state.Jobs.IsBlocked(*job)) {
    Trace(state, "...predecessor not complete\n");
    return Choice::Blocked;
  }
  if (LocalLoad(state) < state.LocalLimit) {
    Trace(state, " to localhost\n");
    job->RunClass = kRunAtOnce;
    state.Jobs.Changed(*job);
    WakeWorkers(state);
    return Choice::Done;
  }
  Trace(state, pool.empty() ? "-NO DIST SERVERS\n" : "\n");
  return pool.empty() ? Choice::NoRoom : Choice::AskPeers;
}

// Done, or why the job has to wait for a later pass.
Choice DistributeJob(JobManagerState& state, JobRef ref, const StringList& pool) {
  const Choice choice = PlaceHere(state, ref, pool);
  if (choice != Choice::AskPeers) return choice;
  const std::shared_ptr<Peer> peer = SelectBestServer(state, pool);
  return peer && PlaceOnPeer(state, peer, ref) != Placement::Failed ? Choice::Done : Choice::NoRoom;
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

// A regular pass comes once a second; between two of them the distributor is woken to place what can be placed at once.
class Distributor {
 public:
  explicit Distributor(JobManagerState& state) : state_(state) {}

  void Run() {
    while (true) {
      const std::uint64_t number = state_.PlaceComes.Number();
      if (!RunPass(Clock::now() >= regular_)) return;
      state_.PlaceComes.WaitFor(number, std::chrono::ceil<std::chrono::milliseconds>(regular_ - Clock::now()));
    }
  }

 private:
  // False once the server ends.
  bool RunPass(bool isRegular) {
    StringList pool;
    {
      const MAutoLock lock(state_.StateLock);
      if (state_.StopRequested) return false;
      pool = state_.ServerPool;
    }
    TraceQueueLength(state_, traced_);
    if (isRegular) held_ = Choice::Done;
    const JobRef kept = PlaceWaitingJobs(pool);
    if (isRegular) {
      PollRemoteJobs(state_);
      regular_ = Clock::now() + kPassInterval;
    }
    if (kept != 0) PushForDistribution(state_, kept);
    return true;
  }

  // Places jobs until one cannot be placed, which is given back.
  JobRef PlaceWaitingJobs(const StringList& pool) {
    while (MayPlaceNext()) {
      const JobRef ref = PopWaiting(state_);
      if (ref == 0) break;
      const Choice choice = DistributeJob(state_, ref, pool);
      if (choice == Choice::Done) continue;
      held_ = choice;
      return ref;
    }
    return 0;
  }

  // Behind a job that has found no place there is nothing to be had from peers until the next regular pass, but perhaps
  // something here.
  bool MayPlaceNext() { return held_ == Choice::Done || (held_ == Choice::NoRoom && HasRoomHere(state_)); }

  JobManagerState& state_;
  std::size_t traced_ = 0;
  Clock::time_point regular_;   // time of the next regular pass
  Choice held_ = Choice::Done;  // why a job has found no place since the last one
};

}  // namespace

void PushForDistribution(JobManagerState& state, JobRef ref) {
  const MAutoLock lock(state.PoolLock);
  state.DistributionQueue.push_back(ref);
}

void StartDistribution(JobManagerState& state) {
  if (state.DistributionStarted) return state.PlaceComes.Raise();
  state.Threads.Start([&state] { Distributor(state).Run(); });
  state.DistributionStarted = true;
}

}  // namespace tlm
