#include "exec/worker.h"

#include <algorithm>

#include "exec/completion.h"
#include "exec/kill.h"
#include "exec/run_job.h"

namespace tlm {

namespace {

constexpr std::chrono::milliseconds kIdleInterval{1000};

bool QueueMayStart(const JobManagerState& state) REQUIRES(state.StateLock) {
  return state.QueueRunning && state.RunningCount < state.QueueLimit;
}

// The first of the jobs that may start, 0 for none.
JobRef FirstStartable(const JobManagerState& state) REQUIRES(state.StateLock) {
  const JobRef atOnce = state.Jobs.ReadyAtOnce().First();
  const JobRef inQueue = QueueMayStart(state) ? state.Jobs.ReadyInQueue().First() : 0;
  return atOnce != 0 && inQueue != 0 ? std::min(atOnce, inQueue) : std::max(atOnce, inQueue);
}

// What broke the run broke it before the job's end was settled.
void SettleBrokenRun(JobManagerState& state, JobRef ref) REQUIRES(state.StateLock) {
  Job* job = state.Jobs.Find(ref);
  if (!job || (job->Status != Starting && job->Status != Running)) return;
  if (job->Pid != 0) KillProcess(state, *job);
  CompleteJob(state, *job, nullptr, true);
}

void RunOneJob(JobManagerState& state, JobRef ref) {
  bool broken = false;
  try {
    RunJob(state, ref);
  } catch (...) {  // For want of memory, say: the worker goes on with other jobs.
    broken = true;
  }
  const MAutoLock lock(state.StateLock);
  if (--state.BusyWorkers == 0) state.WorkersDone.RaiseForAll();
  ++state.IdleWorkers;
  if (broken) SettleBrokenRun(state, ref);
}

// False if the worker is to leave. Who was woken and comes too late for the job does not leave for that: it leaves
// after a whole interval without one.
bool WorkOnce(JobManagerState& state, bool& wasWoken) {
  bool tooManyIdle = false;
  std::uint64_t number = 0;
  {
    const MAutoLock lock(state.StateLock);
    if (state.StopRequested) return false;
    tooManyIdle = state.IdleWorkers > std::uint64_t{state.QueueLimit} + state.LocalLimit + state.RunningCount;
    number = state.WorkComes.Number();
  }
  if (const JobRef ref = TakeNextJob(state)) {
    RunOneJob(state, ref);
    wasWoken = false;
    return true;
  }
  if (tooManyIdle && !wasWoken) return false;
  wasWoken = state.WorkComes.WaitFor(number, kIdleInterval);
  return true;
}

void WorkerLoop(JobManagerState& state) {
  try {
    bool wasWoken = false;
    while (WorkOnce(state, wasWoken)) {
    }
  } catch (...) {  // The head of a thread: a worker that cannot go on leaves like any other.
  }
  const MAutoLock lock(state.StateLock);
  --state.IdleWorkers;
  WakeWorkers(state);  // a job may have come since this worker looked last
}

}  // namespace

std::uint32_t StartableJobCount(const JobManagerState& state) {
  const auto atOnce = static_cast<std::uint32_t>(state.Jobs.ReadyAtOnce().Size());
  if (!QueueMayStart(state)) return atOnce;
  const auto inQueue = static_cast<std::int64_t>(state.Jobs.ReadyInQueue().Size());
  const std::int64_t room = std::int64_t{state.QueueLimit} - state.RunningCount - atOnce;
  return atOnce + static_cast<std::uint32_t>(std::max<std::int64_t>(0, std::min(inQueue, room)));
}

void WakeWorkers(JobManagerState& state) {
  if (state.StopRequested || StartableJobCount(state) == 0) return;
  if (state.IdleWorkers != 0) return state.WorkComes.Raise();
  state.Threads.Start([&state] { WorkerLoop(state); });
  ++state.IdleWorkers;
}

JobRef TakeNextJob(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  if (state.StopRequested) return 0;
  const JobRef ref = FirstStartable(state);
  if (ref != 0) {
    Job& job = *state.Jobs.Find(ref);
    job.Status = Starting;
    state.Jobs.Changed(job);
    ++state.RunningCount;
    ++state.BusyWorkers;
    --state.IdleWorkers;
  } else if (state.QueueRunning && !state.Jobs.QueueInUse()) {
    state.QueueRunning = false;
    state.QueueStartTime = 0;
  }
  return ref;
}

bool AwaitWorkers(JobManagerState& state, std::chrono::milliseconds limit) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + limit;
  std::uint64_t number = 0;
  do {
    number = state.WorkersDone.Number();
    const MAutoLock lock(state.StateLock);
    if (state.BusyWorkers == 0) return true;
  } while (state.WorkersDone.WaitFor(number, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())));
  return false;
}

}  // namespace tlm
