#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>

#include "platform/thread.h"
#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/job_json.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

// The server looks at a process once a second.
constexpr std::chrono::milliseconds kPollInterval{100};
constexpr std::chrono::seconds kPatience{5};

// A job that is to end, and because of which other one.
struct Victim {
  KnownJob Job;
  std::uint64_t Because = 0;
};

bool Holds(const std::vector<Victim>& victims, std::uint64_t handle) {
  return std::any_of(victims.begin(), victims.end(), [&](const Victim& victim) { return victim.Job.Handle == handle; });
}

// Adds those that wait for one of them, or for one that does. A job is always younger than the one that it waits for.
void AddFollowers(QorJMClient& client, std::vector<Victim>& victims) {
  for (KnownJob& job : FetchAllKnownJobs(client)) {
    const std::uint64_t predecessor = job.State.Predecessor;
    if (HasEnded(job.State) || Holds(victims, job.Handle) || !Holds(victims, predecessor)) continue;
    victims.push_back({std::move(job), predecessor});
  }
}

std::string Question(const std::vector<Victim>& victims) {
  std::vector<KnownJob> named;
  std::vector<KnownJob> others;
  for (const Victim& victim : victims) (victim.Because == 0 ? named : others).push_back(victim.Job);
  const bool allEnded =
      std::all_of(named.begin(), named.end(), [](const KnownJob& job) { return HasEnded(job.State); });
  std::string text = (allEnded ? "Take off the server: " : "End ") + ListInWords(named);
  if (!others.empty()) text += ", and with that what waits for it: " + ListInWords(others);
  return text + '?';
}

// Waits for what becomes of a job whose removal was asked for.
void Settle(QorJMClient& client, Victim& victim) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    std::optional<Task> task = FetchJob(client, victim.Job.Handle);
    if (task) {
      victim.Job.State = *std::move(task);
    } else {
      victim.Job.State.Status = Removed;
    }
    if (HasEnded(victim.Job.State) || std::chrono::steady_clock::now() >= end) return Remember(victim.Job);
    platform::Sleep(kPollInterval);
  }
}

void Tell(const Settings& settings, const Victim& victim, bool hadEnded) {
  const Task& task = victim.Job.State;
  if (settings.Quiet) {
    std::cout << victim.Job.Handle << ' ' << StatusWord(task.Status) << std::endl;
    return;
  }
  std::string text = Printable(Subject(victim.Job.Handle, task)) + ": ";
  if (!HasEnded(task)) text += "asked to end, still ";
  text += StatusText(task.Status);
  if (victim.Because != 0) text += ", as it waited for job " + std::to_string(victim.Because);
  std::cout << text << std::endl;
  if (hadEnded && task.Status != Removed) {
    Note(settings,
         "it had ended before; 'tlmctl release " + std::to_string(victim.Job.Handle) + "' takes it off the server");
  }
}

// Those that the words name. What goes wrong with one is told; the others are cancelled all the same.
std::vector<Victim> FindVictims(QorJMClient& client, const Settings& settings, const std::vector<std::string>& words,
                                int& code) {
  std::vector<Victim> victims;
  for (const std::string& word : words) {
    try {
      KnownJob job = FindJob(client, settings, word);
      if (!Holds(victims, job.Handle)) victims.push_back({std::move(job)});
    } catch (const Failure& failure) {
      PrintFailure(settings, failure);
      code = failure.Code;
    }
  }
  return victims;
}

int Cancel(const Settings& settings, const std::vector<std::string>& words) {
  QorJMClient client;
  Connect(client, settings);
  int code = kGood;
  std::vector<Victim> victims = FindVictims(client, settings, words, code);
  if (victims.empty()) return code;
  AddFollowers(client, victims);
  RequireConsent(settings, Question(victims));
  for (const Victim& victim : victims) {
    if (victim.Because == 0) client.RemoveJob(victim.Job.Handle);
  }
  Json list = Json::array();
  for (Victim& victim : victims) {
    const bool hadEnded = HasEnded(victim.Job.State);
    Settle(client, victim);
    list.push_back({{"because_of", victim.Because != 0 ? Json(victim.Because) : Json()},
                    {"job", JobJson(victim.Job.Handle, victim.Job.State)}});
    if (!settings.Json) Tell(settings, victim, hadEnded);
  }
  if (settings.Json) PrintJson({{"cancelled", std::move(list)}});
  return code;
}

}  // namespace

void AddCancel(Program& program) {
  const auto jobs = std::make_shared<std::vector<std::string>>();
  CLI::App& command = program.AddCommand(
      {.Name = "cancel",
       .Description = "End jobs, and those that wait for them; take finished ones off the server",
       .Examples = {{"cancel 4", "asks, if there is a terminal to ask at"},
                    {"cancel --yes 4 8", "does not"},
                    {"list --mine -q --state queued | xargs -r tlmctl cancel", "all of mine that wait"}},
       .Operations = {"RemoveJob", "GetJob", "ListJobs"},
       .Details =
           "A job's program is asked to end, and made to after 10 seconds; one that does not know how to be asked\n"
           "is ended at once. Results of a finished job that were not fetched go with it if it ran in a\n"
           "directory of the server."},
      [jobs](const Settings& settings) { return Cancel(settings, *jobs); });
  command.add_option("JOB", *jobs, kJobHelp)->required()->type_name(kJobValue);
}

}  // namespace tlm::ctl
