#include "tlmctl/outcomes.h"

#include <chrono>
#include <map>

#include "tlmctl/inquiry.h"
#include "tlmctl/job_json.h"
#include "tlmctl/jobs.h"
#include "tlmctl/server_key.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kPatience{3};

using States = std::map<std::uint64_t, Task>;  // by handle

// Empty if the server does not answer.
std::optional<States> AskFor(const Settings& settings, const HandleList& handles) {
  const Inquiry<States> inquiry([settings, handles](QorJMClient& client) {
    Connect(client, settings);
    States states;
    for (const std::uint64_t handle : handles) {
      if (std::optional<Task> task = FetchJob(client, handle)) states[handle] = *std::move(task);
    }
    return states;
  });
  return inquiry.Await(std::chrono::steady_clock::now() + kPatience + settings.WaitServer);
}

void Learn(PastJob& job, const States& states) {
  const auto state = states.find(job.Entry.Handle);
  if (state == states.end() || IdOfNote(state->second.ClientNote) != job.Entry.Id) {
    job.Outcome = "gone";
    return;
  }
  KnownJob known{job.Entry.Handle, state->second, job.Entry};
  Remember(known);
  job = {*known.Entry, StatusWord(known.State.Status)};
}

}  // namespace

std::vector<PastJob> LearnOutcomes(const Settings& settings, const std::vector<LedgerEntry>& entries) {
  const std::string server = AddressOf(settings).Text();
  const std::string key = ServerKey(server);
  std::vector<PastJob> jobs;
  HandleList open;
  for (const LedgerEntry& entry : entries) {
    jobs.push_back({entry, entry.Outcome});
    if (entry.Outcome.empty() && IsOn(entry, key)) open.push_back(entry.Handle);
  }
  if (open.empty()) return jobs;
  const auto states = AskFor(settings, open);
  if (!states) Note(settings, server + " does not answer: how its jobs stand is not known");
  for (PastJob& job : jobs) {
    if (states && job.Outcome.empty() && IsOn(job.Entry, key)) Learn(job, *states);
  }
  return jobs;
}

std::string OutcomeText(const PastJob& job) {
  if (job.Outcome.empty()) return kNothing;
  return job.Outcome + (job.Entry.ExitCode ? ", exit code " + std::to_string(*job.Entry.ExitCode) : "");
}

Json ToJson(const PastJob& job) {
  const LedgerEntry& entry = job.Entry;
  Json sent = Json::array();
  for (const SentFile& file : entry.Sent) sent.push_back({{"name", file.Name}, {"size", file.Size}});
  return {{"id", entry.Id},
          {"handle", entry.Handle},
          {"server", entry.Server},
          {"name", entry.Name},
          {"command", entry.Command},
          {"directory", entry.Directory},
          {"submitted", TimeJson(entry.Submitted)},
          {"submitted_from", entry.From},
          {"command_line", entry.Words},
          {"sent", std::move(sent)},
          {"outcome", job.Outcome.empty() ? Json() : Json(job.Outcome)},
          {"exit_code", entry.ExitCode ? Json(*entry.ExitCode) : Json()},
          {"ended", TimeJson(entry.Ended)}};
}

}  // namespace tlm::ctl
