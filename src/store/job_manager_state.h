// The one process-wide object: what sessions, workers, the timer and the distributor share.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/process.h"
#include "store/job_log.h"
#include "store/job_table.h"
#include "store/session.h"
#include "util/catch_up.h"
#include "util/mmutex.h"
#include "util/signal.h"
#include "util/thread_starter.h"

namespace tlm {

// What clients may not do. Set before the server serves, and then never changed.
struct Restrictions {
  bool LocalAdministration = false;         // who is not on this machine does not change what holds for all
  bool NoLoaderVariables = false;           // nobody sets variables that the loader of programs goes by
  bool Confined = false;                    // files and directories of clients lie below the roots
  std::vector<std::string> ExtraRoots;      // besides the temporary one; no separator at their ends
  std::chrono::seconds LongestRun{0};       // of a job with all its commands; 0 for any time
  std::chrono::seconds LongestCallback{0};  // of connecting to a client; 0 for any time
  std::uint64_t LeastRoom = 0;              // bytes on the disk of the temporary root, else no more is taken
};

// Lives until the process ends: threads that nobody waits for use it to the last moment. When both locks are taken,
// StateLock comes first; on the thread of the server loop the loop's own lock comes before both.
struct JobManagerState {
  MMutex StateLock;
  MMutex PoolLock;

  tlm::Restrictions Restrictions;
  ThreadStarter Threads;

  // What threads wait for, each at most until its next look is due. Whoever waits holds neither lock.
  Signal WorkComes;                 // an idle worker: a job may start
  Signal WorkersDone;               // the end of the server: nobody follows a job any more
  Signal QueueTimeSet;              // the queue timer
  Signal PlaceComes;                // the distributor: a job was submitted, or a run slot has become free
  Signal LaunchDone;                // a process that attaches: see Launches
  platform::Interruption Stopping;  // whoever follows a process: StopRequested
  CatchUp Served;                   // reports of processes that have ended

  // Off unless a setting asks for it, and until the server serves.
  tlm::JobLog JobLog GUARDED_BY(StateLock);
  JobTable Jobs GUARDED_BY(StateLock);
  std::vector<Session*> SessionList GUARDED_BY(StateLock);    // live sessions, in order of creation
  std::vector<std::string> ServerPool GUARDED_BY(StateLock);  // host names of the peers, in the order of asking
  std::map<std::string, std::shared_ptr<Peer>> PeerClientCache GUARDED_BY(StateLock);  // by host name
  std::vector<JobRef> RemoteJobs GUARDED_BY(StateLock);  // those that run on peers, in the order of placement
  bool DistributionStarted GUARDED_BY(StateLock) = false;
  std::int32_t ListeningSessions GUARDED_BY(StateLock) = 0;
  std::chrono::steady_clock::time_point CallbacksAgain GUARDED_BY(StateLock);  // when clients may be connected to
  JobRef LastRefusedJob GUARDED_BY(StateLock) = 0;                             // keeps one trace line from repeating

  bool QueueRunning GUARDED_BY(StateLock) = false;
  std::int64_t QueueStartTime GUARDED_BY(StateLock) = 0;  // seconds since 1970, 0 if no start is pending
  std::uint32_t QueueLimit GUARDED_BY(StateLock) = 1;     // queued jobs start only while fewer jobs run
  std::uint32_t LocalLimit GUARDED_BY(StateLock) = 1;     // load from which on the distributor looks for a peer
  std::uint32_t RunningCount GUARDED_BY(StateLock) = 0;   // jobs that hold a run slot
  std::uint32_t IdleWorkers GUARDED_BY(StateLock) = 0;    // workers without a job, one that is just starting included
  std::uint32_t BusyWorkers GUARDED_BY(StateLock) = 0;    // workers with a job, and watchers of attached processes
  bool TimerStarted GUARDED_BY(StateLock) = false;
  bool StopRequested GUARDED_BY(StateLock) = false;  // never cleared
  std::uint32_t DefaultPriority GUARDED_BY(StateLock) = 1;
  bool ProgressPending GUARDED_BY(StateLock) = false;  // the next GetJob, on whatever job, reports a notice
  bool KillViaEvent GUARDED_BY(StateLock) = true;      // ask a process to end before it is terminated

  // Those under way, by number: the process may run already, and its id is not yet its job's.
  std::set<std::uint64_t> Launches GUARDED_BY(StateLock);
  std::uint64_t LastLaunch GUARDED_BY(StateLock) = 0;

  // By process id, from the start of a process, or from its attachment, to the moment at which its end was seen.
  std::map<std::int32_t, std::shared_ptr<platform::Process>> ProcessHandles GUARDED_BY(StateLock);

  std::string TempRoot GUARDED_BY(StateLock);              // no separator at its end
  std::int64_t TempExpiry GUARDED_BY(StateLock) = 604800;  // seconds
  bool ConsoleTrace GUARDED_BY(StateLock) = false;

  std::deque<JobRef> DistributionQueue GUARDED_BY(PoolLock);
  std::deque<std::uint64_t> RemovedHandles GUARDED_BY(PoolLock);  // the last ones that clients removed, oldest first
};

// For good: no job starts any more, and every thread that waits looks at StopRequested at once.
void RequestStop(JobManagerState& state) REQUIRES(state.StateLock);

// Keeps the last 100.
void RecordRemovedHandle(JobManagerState& state, std::uint64_t handle) EXCLUDES(state.PoolLock);

// Counts a change of the job once for each connected session: readers compare UpdateTimestamp with what they hold. The
// number Removed also ends the watching of the job's output.
void NotifyJobChange(JobManagerState& state, Job& job, std::uint32_t status) REQUIRES(state.StateLock);

}  // namespace tlm
