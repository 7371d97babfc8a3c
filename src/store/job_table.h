// All jobs, in order of creation, and the indexes by which each question about them is answered without a scan.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "store/handle_set.h"
#include "store/job.h"

namespace tlm {

// Guarded by StateLock. A reference to a job lasts until the job is erased. Find costs the same for any number of jobs,
// all else the logarithm of it unless a comment says otherwise.
class JobTable {
 public:
  // A new job with record defaults at the end of the table. Handles are 4, 8, 12 and so on. Its caller fills it in and
  // calls Changed.
  Job& Add();
  // Null for 0 and for a job that has left the table.
  Job* Find(JobRef ref);
  const Job* Find(JobRef ref) const;
  void Erase(JobRef ref);

  std::size_t Size() const { return jobs_.size(); }
  // All handles, in order of creation. Linear.
  std::vector<JobRef> All() const;

  // Names the job that has to finish first, or the job whose process submitted this one. Either may be none. Once for a
  // job.
  void SetPredecessor(Job& job, JobRef predecessor);
  void SetCreator(Job& job, JobRef creator);
  // Names the directory where the job runs and its results lie, its TempDir. Once for a job.
  void SetDirectory(Job& job, std::string directory);
  // Brings the indexes up to date after a change of the fields that Job marks, or of the Task's ClientPort, Status,
  // RunClass and ResultFlags.
  void Changed(Job& job);

  // Is called by Changed for each job that has another Status than at the call before.
  using Observer = std::function<void(const Job& job)>;
  void Observe(Observer observer) { observer_ = std::move(observer); }

  // A job waits for a predecessor that is in the table and has not finished.
  bool IsBlocked(const Job& job) const;
  // Jobs that are Queued and not blocked, in order of creation: those that may always start, and those that are subject
  // to the queue's limit. Jobs to be distributed are in neither.
  const HandleSet& ReadyAtOnce() const { return readyAtOnce_; }
  const HandleSet& ReadyInQueue() const { return readyInQueue_; }
  // True while a job of RunClass 1 is Queued, Starting or Running. A look that finds nothing to start while others are
  // being started must not stop the queue before these.
  bool QueueInUse() const { return queueUsers_ != 0; }
  // Running jobs that do not count as load.
  std::size_t LiteCount() const { return liteRunning_; }
  // Jobs that name this one as predecessor or creator, in order of creation.
  std::vector<JobRef> FollowersOf(JobRef ref) const;

  // Jobs that belong to the client at this port, in order of creation; port 0 gives those that belong to nobody.
  std::vector<JobRef> OwnedThrough(std::uint32_t clientPort) const;
  // True while a job of the table has exactly this TempDir.
  bool IsInUse(const std::string& directory) const { return directories_.contains(directory); }

  // The first job, in order of creation, whose process has this id. Null also for id 0.
  Job* FindByPid(std::int32_t pid);
  // Processes that have attached; a job is here until the end of its process is settled. Id 0 is
  // never one.
  void Attach(std::int32_t pid, JobRef ref);
  void Detach(std::int32_t pid);
  Job* FindAttached(std::int32_t pid);
  bool IsAttached(std::int32_t pid) const { return processTable_.contains(pid); }

  // Jobs that a sweep takes out, in order of creation: those that nothing holds any more, and those already Removed.
  bool IsRetirable(const Job& job) const;
  const HandleSet& Retirable() const { return retirable_; }
  const HandleSet& RemovedJobs() const { return removed_; }

 private:
  struct Entry {
    Job Record;
    std::uint32_t IndexedStatus = 0;
    std::int32_t IndexedPid = 0;
    std::uint32_t IndexedPort = 0;
    bool UsesQueue = false;
    bool RunsLite = false;
  };

  void Follow(JobRef follower, JobRef leader);
  void IndexOwner(Entry& entry, std::uint32_t clientPort);
  void IndexReadiness(const Job& job);
  void IndexFollowers(const std::vector<JobRef>& followers);
  void ReindexProcess(std::int32_t pid);

  Observer observer_;
  std::list<Entry> jobs_;
  std::unordered_map<JobRef, std::list<Entry>::iterator> byHandle_;
  JobRef lastHandle_ = 0;
  std::map<std::int32_t, JobRef> processTable_;
  std::set<std::pair<std::int32_t, JobRef>> byPid_;
  std::set<std::pair<std::uint32_t, JobRef>> byPort_;
  std::set<std::pair<JobRef, JobRef>> followers_;   // behind their leaders
  std::map<std::string, std::size_t> directories_;  // how many jobs are in each
  HandleSet readyAtOnce_;
  HandleSet readyInQueue_;
  HandleSet retirable_;
  HandleSet removed_;
  std::size_t queueUsers_ = 0;
  std::size_t liteRunning_ = 0;
};

}  // namespace tlm
