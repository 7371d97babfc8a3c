#include "store/job_table.h"

#include <iterator>

namespace tlm {

namespace {

template <class First>
std::vector<JobRef> SecondsOf(const std::set<std::pair<First, JobRef>>& pairs, First first) {
  std::vector<JobRef> refs;
  for (auto next = pairs.lower_bound({first, 0}); next != pairs.end() && next->first == first; ++next) {
    refs.push_back(next->second);
  }
  return refs;
}

}  // namespace

Job& JobTable::Add() {
  lastHandle_ += HandleSet::kHandleStep;
  Entry& entry = jobs_.emplace_back();
  byHandle_.emplace(lastHandle_, std::prev(jobs_.end()));
  entry.Record.Handle = lastHandle_;
  static const auto nowhere = std::make_shared<const Installation>();
  entry.Record.Installed = nowhere;
  byPort_.emplace(entry.Record.ClientPort, lastHandle_);
  return entry.Record;
}

Job* JobTable::Find(JobRef ref) {
  const auto found = byHandle_.find(ref);
  return found == byHandle_.end() ? nullptr : &found->second->Record;
}

const Job* JobTable::Find(JobRef ref) const {
  const auto found = byHandle_.find(ref);
  return found == byHandle_.end() ? nullptr : &found->second->Record;
}

void JobTable::Erase(JobRef ref) {
  const auto found = byHandle_.find(ref);
  if (found == byHandle_.end()) return;
  Entry& entry = *found->second;
  for (const JobRef leader : {entry.Record.Predecessor, entry.Record.CreatorJob}) followers_.erase({leader, ref});
  byPid_.erase({entry.IndexedPid, ref});
  byPort_.erase({entry.IndexedPort, ref});
  const auto directory = directories_.find(entry.Record.TempDir);
  if (directory != directories_.end() && --directory->second == 0) directories_.erase(directory);
  if (entry.UsesQueue) --queueUsers_;
  if (entry.RunsLite) --liteRunning_;
  for (HandleSet* index : {&readyAtOnce_, &readyInQueue_, &retirable_, &removed_}) index->Set(ref, false);
  jobs_.erase(found->second);
  byHandle_.erase(found);
  const std::vector<JobRef> followers = FollowersOf(ref);
  for (const JobRef follower : followers) followers_.erase({ref, follower});
  IndexFollowers(followers);
}

std::vector<JobRef> JobTable::All() const {
  std::vector<JobRef> refs;
  refs.reserve(jobs_.size());
  for (const Entry& entry : jobs_) refs.push_back(entry.Record.Handle);
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

void JobTable::SetDirectory(Job& job, std::string directory) {
  job.TempDir = std::move(directory);
  if (!job.TempDir.empty()) ++directories_[job.TempDir];
}

void JobTable::Follow(JobRef follower, JobRef leader) {
  if (Find(leader)) followers_.emplace(leader, follower);
}

void JobTable::Changed(Job& job) {
  Entry& entry = *byHandle_.at(job.Handle);
  if (entry.IndexedPid != job.Pid) {
    byPid_.erase({entry.IndexedPid, job.Handle});
    if (job.Pid != 0) byPid_.emplace(job.Pid, job.Handle);
    entry.IndexedPid = job.Pid;
  }
  IndexOwner(entry, job.ClientPort);
  const bool isActive = job.Status == Queued || job.Status == Starting || job.Status == Running;
  const bool usesQueue = job.RunClass == kRunQueued && isActive;
  queueUsers_ = queueUsers_ + (usesQueue ? 1 : 0) - (entry.UsesQueue ? 1 : 0);
  entry.UsesQueue = usesQueue;
  const bool runsLite = job.Lite && job.Status == Running;
  liteRunning_ = liteRunning_ + (runsLite ? 1 : 0) - (entry.RunsLite ? 1 : 0);
  entry.RunsLite = runsLite;
  retirable_.Set(job.Handle, IsRetirable(job));
  removed_.Set(job.Handle, job.Status == Removed);
  IndexReadiness(job);
  if (entry.IndexedStatus == job.Status) return;
  entry.IndexedStatus = job.Status;
  IndexFollowers(FollowersOf(job.Handle));
  if (observer_) observer_(job);
}

void JobTable::IndexOwner(Entry& entry, std::uint32_t clientPort) {
  if (entry.IndexedPort == clientPort) return;
  byPort_.erase({entry.IndexedPort, entry.Record.Handle});
  byPort_.emplace(clientPort, entry.Record.Handle);
  entry.IndexedPort = clientPort;
}

void JobTable::IndexReadiness(const Job& job) {
  const bool ready = job.Status == Queued && job.RunClass != kRunDistributed && !IsBlocked(job);
  readyAtOnce_.Set(job.Handle, ready && job.RunClass == kRunAtOnce);
  readyInQueue_.Set(job.Handle, ready && job.RunClass != kRunAtOnce);
}

void JobTable::IndexFollowers(const std::vector<JobRef>& followers) {
  for (const JobRef follower : followers) {
    if (const Job* job = Find(follower)) IndexReadiness(*job);
  }
}

bool JobTable::IsBlocked(const Job& job) const {
  const Job* predecessor = Find(job.Predecessor);
  return predecessor && predecessor->Status != Finished;
}

std::vector<JobRef> JobTable::FollowersOf(JobRef ref) const { return SecondsOf(followers_, ref); }

std::vector<JobRef> JobTable::OwnedThrough(std::uint32_t clientPort) const { return SecondsOf(byPort_, clientPort); }

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
    retirable_.Set(next->second, IsRetirable(*Find(next->second)));
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
