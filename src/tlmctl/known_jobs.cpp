#include "tlmctl/known_jobs.h"

#include <map>

#include "tlmctl/texts.h"

namespace tlm::ctl {

std::vector<KnownJob> FetchKnownJobs(QorJMClient& client, const HandleList& handles) {
  std::vector<KnownJob> jobs;
  if (handles.empty()) return jobs;
  std::map<std::string, LedgerEntry> entries;
  for (LedgerEntry& entry : Ledger().Read()) entries[entry.Id] = std::move(entry);
  for (const std::uint64_t handle : handles) {
    std::optional<Task> task = FetchJob(client, handle);
    if (!task) continue;  // it was there a moment ago
    const auto entry = entries.find(IdOfNote(task->ClientNote));
    jobs.push_back(
        {handle, *std::move(task), entry == entries.end() ? std::nullopt : std::optional(std::move(entry->second))});
    Remember(jobs.back());
  }
  return jobs;
}

std::vector<KnownJob> FetchAllKnownJobs(QorJMClient& client) {
  HandleList handles;
  client.ListJobs(handles);
  return FetchKnownJobs(client, handles);
}

bool IsSameJob(const Task& one, const Task& other) {
  return one.Scheduled == other.Scheduled && one.ClientNote == other.ClientNote && one.Command == other.Command;
}

Failure Forgotten(const KnownJob& job) {
  return {kLost, "the server has forgotten " + Printable(Subject(job.Handle, job.State)) + ": it was restarted",
          job.Entry ? "'tlmctl resubmit @" + job.Entry->Id + "' starts the job anew" : "its jobs have ended with it"};
}

std::string SubjectAndState(const KnownJob& job) {
  std::string state = StatusText(job.State.Status);
  if (job.State.Status == Running) state += ", " + std::to_string(job.State.Progress) + " %";
  return Printable(Subject(job.Handle, job.State)) + " (" + state + ')';
}

std::string ListInWords(const std::vector<KnownJob>& jobs) {
  constexpr std::size_t kNamed = 4;
  std::string text;
  for (std::size_t i = 0; i < jobs.size() && i < kNamed; ++i) text += (i == 0 ? "" : ", ") + SubjectAndState(jobs[i]);
  if (jobs.size() > kNamed) text += " and " + std::to_string(jobs.size() - kNamed) + " more";
  return text;
}

}  // namespace tlm::ctl
