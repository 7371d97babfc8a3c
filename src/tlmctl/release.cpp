#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/jobs.h"

namespace tlm::ctl {

namespace {

// Why a job that was released is still there.
std::string Obstacle(const Task& task) {
  if ((task.ResultFlags & (kResultsAvailable | kResultsBeingSent)) != 0) return "until its results have been fetched";
  return HasEnded(task) ? "until no other job waits for it" : "until its program has ended";
}

void AskAboutUnended(const Settings& settings, const std::vector<KnownJob>& jobs) {
  std::string unended;
  for (const KnownJob& job : jobs) {
    if (!HasEnded(job.State)) unended += (unended.empty() ? "" : ", ") + Printable(Subject(job.Handle, job.State));
  }
  if (unended.empty()) return;
  RequireConsent(
      settings, "Not ended yet: " + unended + ". What waits is never run, and of what runs nobody will hear. Release?");
}

int Release(const Settings& settings, const std::vector<std::string>& words) {
  QorJMClient client;
  Connect(client, settings);
  std::vector<KnownJob> jobs;
  jobs.reserve(words.size());
  for (const std::string& word : words) jobs.push_back(FindJob(client, settings, word));
  AskAboutUnended(settings, jobs);
  Json list = Json::array();
  for (const KnownJob& job : jobs) {
    client.ReleaseJob(job.Handle);
    FetchJob(client, job.Handle);  // reading it takes it off the server, if nothing holds it
    const std::optional<Task> left = FetchJob(client, job.Handle);
    list.push_back({{"handle", job.Handle}, {"name", job.State.AnalysisID}, {"gone", !left}});
    if (settings.Json || settings.Quiet) continue;
    std::cout << Printable(Subject(job.Handle, job.State)) << ": "
              << (left ? "released, stays " + Obstacle(*left) : std::string("gone")) << std::endl;
  }
  if (settings.Json) PrintJson({{"jobs", list}});
  return kGood;
}

}  // namespace

void AddRelease(Program& program) {
  const auto words = std::make_shared<std::vector<std::string>>();
  CLI::App& command = program.AddCommand(
      {.Name = "release",
       .Description = "Let the server forget jobs that have failed",
       .Examples = {{"release 4 8", "two jobs that nobody asks about any more"},
                    {"release last", "the one that was submitted last from here"}},
       .Operations = {"ReleaseJob", "GetJob"},
       .Details = "A job that has failed stays on the server, and its directory with it, until it is released.\n"
                  "One that has succeeded goes by itself once its results have been fetched."},
      [words](const Settings& settings) { return Release(settings, *words); });
  command.add_option("JOB", *words, kJobHelp)->type_name(kJobValue)->required();
}

}  // namespace tlm::ctl
