#include "tlmctl/followed_jobs.h"

#include <algorithm>
#include <chrono>

#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

// True if another process of this user's has written down how the job ended.
bool TakeOutcome(KnownJob& job) {
  const auto known = job.Entry ? Ledger().FindById(job.Entry->Id) : std::nullopt;
  if (!known || !known->Code) return false;
  job.Entry = known;
  return true;
}

// One that has taken the job's results is about to do so.
void AwaitOutcome(KnownJob& job) {
  constexpr int kTries = 10;
  constexpr std::chrono::milliseconds kTryInterval{100};
  for (int i = 0; i < kTries && !TakeOutcome(job); ++i) platform::Sleep(kTryInterval);
}

}  // namespace

int FollowedJob::ExitCode() const {
  if (IsGone && Job.Entry && Job.Entry->Code) return *Job.Entry->Code;
  if (IsGone) return WasRemoved ? kAborted : kLost;
  return HasEnded(Job.State) ? ExitCodeOf(Job.State, WasRemoved) : kGood;
}

std::string CourseText(const FollowedJob& job) {
  const Task& task = job.Job.State;
  std::string text = Printable(Subject(job.Job.Handle, task)) + ": ";
  if (job.IsGone && job.WasRemoved) return text + "removed by a client";
  if (job.IsGone) return text + "no longer on the server; " + KnownOutcome(job.Job.Entry);
  text += StatusText(task.Status);
  if (task.Status == Running) text += ", " + std::to_string(task.Progress) + " %";
  if (ExitCodeText(task) != kNothing) text += ", exit code " + ExitCodeText(task) + ", " + ElapsedText(task);
  return job.WasRemoved ? text + ", removed by a client" : text;
}

FollowedJobs::FollowedJobs(const Settings& settings, const std::vector<std::string>& words)
    : all_(words.empty()),
      link_(
          settings, [this](QorJMClient&) { ++connections_; }, Connect) {
  link_.Open();
  link_.Persist([&](QorJMClient& client) {
    jobs_.clear();
    for (const std::string& word : words) {
      jobs_.push_back({FindJobOrEntry(client, settings, word), connections_});
      jobs_.back().IsGone = !jobs_.back().Job.IsThere();
      Settle(client, jobs_.back());
    }
  });
}

void FollowedJobs::Poll() {
  link_.Persist([this](QorJMClient& client) {
    if (all_) AddNew(client);
    for (FollowedJob& job : jobs_) {
      if (!job.IsOver()) Look(client, job);
    }
  });
  polled_ = true;
}

void FollowedJobs::AddNew(QorJMClient& client) {
  HandleList handles;
  client.ListJobs(handles);
  // No handle is used twice, and each is larger than those before.
  if (!jobs_.empty()) std::erase_if(handles, [this](auto handle) { return handle <= jobs_.back().Job.Handle; });
  for (KnownJob& job : FetchKnownJobs(client, handles)) {
    jobs_.push_back({std::move(job), connections_});
    jobs_.back().EndedBefore = !polled_ && jobs_.back().IsOver();
    Settle(client, jobs_.back());
  }
}

void FollowedJobs::Look(QorJMClient& client, FollowedJob& job) {
  std::optional<Task> task = FetchJob(client, job.Job.Handle);
  if (!task && job.SeenOn != connections_ && !TakeOutcome(job.Job)) throw Forgotten(job.Job);
  if (task && !IsSameJob(*task, job.Job.State)) throw Forgotten(job.Job);
  job.SeenOn = connections_;
  job.IsGone = !task;
  if (task) job.Job.State = *std::move(task);
  Settle(client, job);
}

void FollowedJobs::Settle(QorJMClient& client, FollowedJob& job) {
  if (job.IsOver() && !HasSucceeded(job.Job.State)) job.WasRemoved = WasRemovedByClient(client, job.Job.Handle);
  if (job.IsGone && job.WasRemoved) job.Job.State.Status = Aborted;
  Remember(job.Job);
  if (job.IsGone && job.Job.Entry && !job.Job.Entry->Code) AwaitOutcome(job.Job);
}

bool FollowedJobs::AreOver() const {
  return std::all_of(jobs_.begin(), jobs_.end(), [](const FollowedJob& job) { return job.IsOver(); });
}

int FollowedJobs::ExitCode() const {
  for (const FollowedJob& job : jobs_) {
    // Of jobs that others look after nobody here may know the end.
    if (all_ && (job.EndedBefore || (job.IsEndUnknown() && !job.Job.Entry))) continue;
    if (const int code = job.ExitCode(); code != kGood) return code;
  }
  return kGood;
}

}  // namespace tlm::ctl
