#include "tlmctl/jobs.h"

#include <algorithm>
#include <charconv>

#include "platform/process.h"
#include "platform/thread.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kLargestExitCode = 255;

std::optional<std::uint64_t> NumberOf(const std::string& word) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size() ? std::optional(number) : std::nullopt;
}

// The latest entry of this server whose id begins so.
std::optional<LedgerEntry> FindEntry(const Settings& settings, const std::string& id) {
  const std::string server = AddressOf(settings).Text();
  const std::vector<LedgerEntry> entries = Ledger().Read();
  const auto found = std::find_if(entries.rbegin(), entries.rend(), [&](const LedgerEntry& entry) {
    return entry.Server == server && entry.Id.starts_with(id);
  });
  return found == entries.rend() ? std::nullopt : std::optional(*found);
}

std::string KnownOutcome(const std::optional<LedgerEntry>& entry) {
  if (!entry || entry->Outcome.empty()) return "it may have finished, or the server was restarted since";
  return "it was seen to end as " + entry->Outcome + " on " + LocalTimeText(entry->Ended);
}

}  // namespace

std::optional<Task> FetchJob(QorJMClient& client, std::uint64_t handle) {
  std::optional<Task> noticed;
  while (true) {
    Task task;  // no job of a server has the status that this one has
    client.GetJob(handle, task);
    if (task.Status == 0) {
      if (noticed) noticed->Status = Removed;
      return noticed;
    }
    if (task.Status != kProgressNotice) return task;
    noticed = std::move(task);  // some job has reported something; the next answer tells the state
  }
}

std::uint64_t HandleOf(const Settings& settings, const std::string& word) {
  if (const auto number = NumberOf(word)) return *number;
  const bool isId = word.size() > 1 && word.front() == '@';
  if (!isId && word != "last") throw Failure{kUsage, word + " is no job", "a job is a handle, @ID, or last"};
  if (const auto entry = FindEntry(settings, isId ? word.substr(1) : "")) return entry->Handle;
  throw Failure{kRefused, "no job " + word + " was submitted to " + AddressOf(settings).Text() + " from here",
                "'tlmctl history' shows those that were"};
}

KnownJob FindJob(QorJMClient& client, const Settings& settings, const std::string& word) {
  KnownJob job{HandleOf(settings, word), {}, {}};
  job.Entry =
      word.front() == '@' ? FindEntry(settings, word.substr(1)) : Ledger().Find(AddressOf(settings).Text(), job.Handle);
  std::optional<Task> task = FetchJob(client, job.Handle);
  if (!task) {
    throw Failure{kRefused, "the server has no job " + std::to_string(job.Handle), KnownOutcome(job.Entry)};
  }
  if (job.Entry && IdOfNote(task->ClientNote) != job.Entry->Id) {
    throw Failure{kRefused,
                  "that was another job: job " + std::to_string(job.Handle) + " is now \"" + task->AnalysisID +
                      "\" of " + task->ClientHost + ", and not \"" + job.Entry->Name +
                      "\" that was submitted from here",
                  "the server has been restarted since and has forgotten it; 'tlmctl list' shows what there is"};
  }
  job.State = *std::move(task);
  return job;
}

Failure UnknownJob(std::uint64_t handle) {
  return {kRefused, "the server has no job " + std::to_string(handle), "'tlmctl list' shows those that it has"};
}

std::string Subject(std::uint64_t handle, const Task& task) {
  return "job " + std::to_string(handle) + (task.AnalysisID.empty() ? "" : " " + task.AnalysisID);
}

void BecomeOwner(QorJMClient& client, const Settings& settings, std::uint64_t handle) {
  if (client.TakeOwnership(handle)) return;
  const std::optional<Task> task = FetchJob(client, handle);
  if (!task) throw UnknownJob(handle);
  const std::string job = "job " + std::to_string(handle);
  if (task->ClientHost != settings.ClientHost) {
    throw Failure{kRefused,
                  job + " was submitted from \"" + task->ClientHost + "\", and is for that host alone; this one is \"" +
                      settings.ClientHost + "\"",
                  "--client-host names another one"};
  }
  throw Failure{kRefused, job + " belongs to another client, at port " + std::to_string(task->ClientPort),
                "it can be had once that one has disconnected"};
}

bool HasEnded(const Task& task) { return task.Status != Queued && task.Status != Starting && task.Status != Running; }

bool HasSucceeded(const Task& task) { return task.Status == Finished || task.Status == Removed; }

bool WasRemovedByClient(QorJMClient& client, std::uint64_t handle) {
  HandleList removed;
  client.ListRemovedJobs(removed);
  return std::find(removed.begin(), removed.end(), handle) != removed.end();
}

int ExitCodeOf(const Task& task, bool removed) {
  if (removed && !HasSucceeded(task)) return kAborted;
  if (task.Status == LaunchFailed) return kLaunchFailed;
  const bool known = task.ExitCode <= kLargestExitCode;
  if (HasSucceeded(task)) return known ? static_cast<int>(task.ExitCode) : kGood;
  return known && task.ExitCode != 0 ? static_cast<int>(task.ExitCode) : kAborted;
}

std::optional<int> ProgramExitCode(const Task& task) {
  const bool known = ExitCodeText(task) != kNothing && task.ExitCode <= kLargestExitCode;
  return known ? std::optional(static_cast<int>(task.ExitCode)) : std::nullopt;
}

void Remember(const KnownJob& job) {
  if (!job.Entry || !job.Entry->Outcome.empty() || !HasEnded(job.State)) return;
  LedgerEntry entry = *job.Entry;
  entry.Outcome = StatusWord(job.State.Status);
  entry.ExitCode = ProgramExitCode(job.State);
  entry.Ended = platform::SecondsSince1970();
  Ledger().SetOutcome(entry);
}

}  // namespace tlm::ctl
