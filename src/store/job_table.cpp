#include "store/job_table.h"

namespace tlm {

namespace {

constexpr JobRef kHandleStep = 4;

void SetMember(std::set<JobRef>& set, JobRef ref, bool member) {
  if (member) {
    set.insert(ref);
  } else {
    set.erase(ref);
  }
}

}  // namespace

Job& JobTable::Add() {
  lastHandle_ += kHandleStep;
  Job& job = jobs_[lastHandle_].Record;
  job.Handle = lastHandle_;
  byPort_.emplace(job.ClientPort, job.Handle);
  return job;
}

Job* JobTable::Find(JobRef ref) {
  const auto found = jobs_.find(ref);
  return found == jobs_.end() ? nullptr : &found->second.Record;
}

const Job* JobTable::Find(JobRef ref) const {
  const auto found = jobs_.find(ref);
  return found == jobs_.end() ? nullptr : &found->second.Record;
}

void JobTable::Erase(JobRef ref) {
  auto node = jobs_.extract(ref);
  if (!node) return;
  Entry& entry = node.mapped();
  Unfollow(ref, entry.Record.Predecessor);
  Unfollow(ref, entry.Record.CreatorJob);
  byPid_.erase({entry.IndexedPid, ref});
  byPort_.erase({entry.IndexedPort, ref});
  IndexDirectory(entry, "");
  if (entry.UsesQueue) --queueUsers_;
  if (entry.RunsLite) --liteRunning_;
  for (std::set<JobRef>* index : {&readyAtOnce_, &readyInQueue_, &retirable_, &removed_}) index->erase(ref);
  IndexFollowers(entry);
}

std::vector<JobRef> JobTable::All() const {
  std::vector<JobRef> refs;
  refs.reserve(jobs_.size());
  for (const auto& [ref, entry] : jobs_) refs.push_back(ref);
  return refs;
}

void JobTable::SetPredecessor(Job& job, JobRef predecessor) {
  job.Predecessor = predecessor;
  Follow(job.Handle, predecessor);
  Changed(job);
}

void JobTable::SetCreator(Job& job, JobRef creator) {
  job.CreatorJob = creator;
  Follow(job.Handle, creator);
}

void JobTable::Follow(JobRef follower, JobRef leader) {
  const auto found = jobs_.find(leader);
  if (found != jobs_.end()) found->second.Followers.insert(follower);
}

void JobTable::Unfollow(JobRef follower, JobRef leader) {
  const auto found = jobs_.find(leader);
  if (found != jobs_.end()) found->second.Followers.erase(follower);
}

void JobTable::Changed(Job& job) {
  Entry& entry = jobs_.at(job.Handle);
  if (entry.IndexedPid != job.Pid) {
    byPid_.erase({entry.IndexedPid, job.Handle});
    if (job.Pid != 0) byPid_.emplace(job.Pid, job.Handle);
    entry.IndexedPid = job.Pid;
  }
  IndexOwner(entry, job.ClientPort);
  IndexDirectory(entry, job.TempDir);
  const bool usesQueue = job.RunClass == kRunQueued && (job.Status == Queued || job.Status == Running);
  queueUsers_ = queueUsers_ + (usesQueue ? 1 : 0) - (entry.UsesQueue ? 1 : 0);
  entry.UsesQueue = usesQueue;
  const bool runsLite = job.Lite && job.Status == Running;
  liteRunning_ = liteRunning_ + (runsLite ? 1 : 0) - (entry.RunsLite ? 1 : 0);
  entry.RunsLite = runsLite;
  SetMember(retirable_, job.Handle, IsRetirable(job));
  SetMember(removed_, job.Handle, job.Status == Removed);
  IndexReadiness(entry);
  if (entry.IndexedStatus == job.Status) return;
  entry.IndexedStatus = job.Status;
  IndexFollowers(entry);
  if (observer_) observer_(job);
}

void JobTable::IndexOwner(Entry& entry, std::uint32_t clientPort) {
  if (entry.IndexedPort == clientPort) return;
  byPort_.erase({entry.IndexedPort, entry.Record.Handle});
  byPort_.emplace(clientPort, entry.Record.Handle);
  entry.IndexedPort = clientPort;
}

void JobTable::IndexDirectory(Entry& entry, const std::string& directory) {
  if (entry.IndexedDirectory == directory) return;
  const auto former = directories_.find(entry.IndexedDirectory);
  if (former != directories_.end() && --former->second == 0) directories_.erase(former);
  if (!directory.empty()) ++directories_[directory];
  entry.IndexedDirectory = directory;
}

void JobTable::IndexReadiness(Entry& entry) {
  const Job& job = entry.Record;
  const bool ready = job.Status == Queued && job.RunClass != kRunDistributed && !IsBlocked(job);
  SetMember(readyAtOnce_, job.Handle, ready && job.RunClass == kRunAtOnce);
  SetMember(readyInQueue_, job.Handle, ready && job.RunClass != kRunAtOnce);
}

void JobTable::IndexFollowers(const Entry& entry) {
  for (JobRef follower : entry.Followers) {
    const auto found = jobs_.find(follower);
    if (found != jobs_.end()) IndexReadiness(found->second);
  }
}

bool JobTable::IsBlocked(const Job& job) const {
  const Job* predecessor = Find(job.Predecessor);
  return predecessor && predecessor->Status != Finished;
}

const std::set<JobRef>& JobTable::FollowersOf(JobRef ref) const {
  static const std::set<JobRef> none;
  const auto found = jobs_.find(ref);
  return found == jobs_.end() ? none : found->second.Followers;
}

std::vector<JobRef> JobTable::OwnedThrough(std::uint32_t clientPort) const {
  std::vector<JobRef> refs;
  for (auto next = byPort_.lower_bound({clientPort, 0}); next != byPort_.end() && next->first == clientPort; ++next) {
    refs.push_back(next->second);
  }
  return refs;
}

Job* JobTable::FindByPid(std::int32_t pid) {
  const auto found = byPid_.lower_bound({pid, 0});
  return pid != 0 && found != byPid_.end() && found->first == pid ? Find(found->second) : nullptr;
}

void JobTable::Attach(std::int32_t pid, JobRef ref) {
  if (pid == 0) return;
  processTable_[pid] = ref;
  ReindexProcess(pid);
}

void JobTable::Detach(std::int32_t pid) {
  if (processTable_.erase(pid) > 0) ReindexProcess(pid);
}

void JobTable::ReindexProcess(std::int32_t pid) {
  for (auto next = byPid_.lower_bound({pid, 0}); next != byPid_.end() && next->first == pid; ++next) {
    SetMember(retirable_, next->second, IsRetirable(*Find(next->second)));
  }
}

Job* JobTable::FindAttached(std::int32_t pid) {
  const auto found = processTable_.find(pid);
  return found == processTable_.end() ? nullptr : Find(found->second);
}

bool JobTable::IsRetirable(const Job& job) const {
  const bool killed = job.Killed < 0;
  return (job.Dependents == 0 || killed) &&                         //
         ((job.ResultFlags & kResultsAvailable) == 0 || killed) &&  // results that nobody took keep a job
         (job.ResultFlags & kResultsBeingSent) == 0 &&              //
         (job.Status == Finished || job.RemoveWhenDone) && !IsAttached(job.Pid);
}

}  // namespace tlm
