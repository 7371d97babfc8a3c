#include "tlmctl/jobs.h"

#include <algorithm>
#include <charconv>

#include "platform/thread.h"
#include "tlmctl/server_key.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

std::optional<std::uint64_t> NumberOf(const std::string& word) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size() ? std::optional(number) : std::nullopt;
}

// The job of the server whose id begins so.
std::optional<std::uint64_t> FindLive(QorJMClient& client, const std::string& digits) {
  HandleList handles;
  client.ListJobs(handles);
  std::optional<std::uint64_t> found;
  for (const std::uint64_t handle : handles) {
    const std::optional<Task> task = FetchJob(client, handle);
    if (!task || !IdOfNote(task->ClientNote).starts_with(digits)) continue;
    if (found) throw Ambiguous(digits, "job " + std::to_string(*found), "job " + std::to_string(handle));
    found = handle;
  }
  return found;
}

std::optional<LedgerEntry> EntryOf(const Task& task) {
  const std::string id = IdOfNote(task.ClientNote);
  return id.empty() ? std::nullopt : Ledger().FindLatest([&](const LedgerEntry& entry) { return entry.Id == id; });
}

// What a word means, before the server has been asked how it stands.
struct Meaning {
  std::uint64_t Handle = 0;
  std::optional<LedgerEntry> Entry;
  bool IsNamedByHandle = false;
};

Meaning MeaningOf(QorJMClient& client, const Settings& settings, const std::string& word) {
  const std::string server = AddressOf(settings).Text();
  const std::string rest = word.substr(std::min<std::size_t>(1, word.size()));
  if (const auto handle = NumberOf(word)) return {*handle, Ledger().Find(server, *handle), true};
  if (word.starts_with('=')) {
    if (const auto handle = NumberOf(rest)) return {*handle, std::nullopt, true};
  }
  const bool isId = word.starts_with('@') && !rest.empty();
  if (!isId && word != "last") {
    throw Failure{kUsage, word + " is no job", "a job is a handle, @ID, last, or = in front of a handle"};
  }
  const std::string key = ServerKey(server);
  const auto entry = isId ? Ledger().FindById(rest, server)
                          : Ledger().FindLatest([&](const LedgerEntry& each) { return IsOn(each, key); });
  if (entry) return {entry->Handle, entry};
  if (isId) {
    if (const auto handle = FindLive(client, rest)) return {*handle, std::nullopt};
  }
  throw Failure{kRefused, "no job " + word + " was submitted to " + server + " from here",
                "'tlmctl history' shows those that were"};
}

Failure AnotherJob(const Meaning& meaning, const Task& task) {
  const std::string handle = std::to_string(meaning.Handle);
  return {kRefused,
          "that was another job: job " + handle + " is now \"" + task.AnalysisID + "\" of " + task.ClientHost +
              ", and not \"" + meaning.Entry->Name + "\" that was submitted from here",
          "the server has been restarted since and has forgotten it; the job that is there now is named by =" + handle};
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

KnownJob FindJobOrEntry(QorJMClient& client, const Settings& settings, const std::string& word) {
  Meaning meaning = MeaningOf(client, settings, word);
  std::optional<Task> task = FetchJob(client, meaning.Handle);
  if (task && meaning.Entry && IdOfNote(task->ClientNote) != meaning.Entry->Id) {
    if (meaning.IsNamedByHandle || meaning.Entry->Outcome.empty()) throw AnotherJob(meaning, *task);
    task.reset();
  }
  if (!task && !meaning.Entry) {
    throw Failure{kRefused, "the server has no job " + std::to_string(meaning.Handle), KnownOutcome({})};
  }
  if (task && !meaning.Entry) meaning.Entry = EntryOf(*task);
  KnownJob job{meaning.Handle, task.value_or(Task()), std::move(meaning.Entry)};
  if (!task) job.State.AnalysisID = job.Entry->Name;
  Remember(job);
  return job;
}

KnownJob FindJob(QorJMClient& client, const Settings& settings, const std::string& word) {
  KnownJob job = FindJobOrEntry(client, settings, word);
  if (job.IsThere()) return job;
  throw Failure{kRefused, "the server has no job " + std::to_string(job.Handle), KnownOutcome(job.Entry)};
}

std::string KnownOutcome(const std::optional<LedgerEntry>& entry) {
  if (!entry || entry->Outcome.empty()) return "it may have finished, or the server was restarted since";
  return "it was seen to end as " + entry->Outcome +
         (entry->ExitCode ? " with exit code " + std::to_string(*entry->ExitCode) : "") + " on " +
         LocalTimeText(entry->Ended);
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

bool WasRemovedByClient(QorJMClient& client, std::uint64_t handle) {
  HandleList removed;
  client.ListRemovedJobs(removed);
  return std::find(removed.begin(), removed.end(), handle) != removed.end();
}

void Remember(KnownJob& job) {
  if (!job.IsThere() || !job.Entry || !job.Entry->Outcome.empty() || !HasEnded(job.State)) return;
  job.Entry->Outcome = StatusWord(job.State.Status);
  job.Entry->ExitCode = ProgramExitCode(job.State);
  job.Entry->Code = ExitCodeOf(job.State, false);
  job.Entry->Ended = platform::SecondsSince1970();
  Ledger().SetOutcome(*job.Entry);
}

}  // namespace tlm::ctl
