#include "tlmctl/followed_jobs.h"

#include <algorithm>

#include "tlmctl/console.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

int FollowedJob::ExitCode() const {
  if (IsGone) return WasRemoved ? kAborted : kGood;
  return HasEnded(Job.State) ? ExitCodeOf(Job.State, WasRemoved) : kGood;
}

std::string CourseText(const FollowedJob& job) {
  const Task& task = job.Job.State;
  std::string text = Printable(Subject(job.Job.Handle, task)) + ": ";
  if (job.IsGone) return text + (job.WasRemoved ? "removed by a client" : "no longer on the server");
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
  for (const std::string& word : words) {
    jobs_.push_back({FindJob(link_.Client(), settings, word), connections_});
    Settle(link_.Client(), jobs_.back());
  }
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
  if (task ? !IsSameJob(*task, job.Job.State) : job.SeenOn != connections_) throw Forgotten(job.Job);
  job.SeenOn = connections_;
  job.IsGone = !task;
  if (task) job.Job.State = *std::move(task);
  Settle(client, job);
}

void FollowedJobs::Settle(QorJMClient& client, FollowedJob& job) {
  if (job.IsOver() && !HasSucceeded(job.Job.State)) job.WasRemoved = WasRemovedByClient(client, job.Job.Handle);
  if (job.IsGone && job.WasRemoved) job.Job.State.Status = Aborted;
  Remember(job.Job);
}

bool FollowedJobs::AreOver() const {
  return std::all_of(jobs_.begin(), jobs_.end(), [](const FollowedJob& job) { return job.IsOver(); });
}

int FollowedJobs::ExitCode() const {
  for (const FollowedJob& job : jobs_) {
    if (const int code = job.ExitCode(); code != kGood && !(all_ && job.EndedBefore)) return code;
  }
  return kGood;
}

}  // namespace tlm::ctl
