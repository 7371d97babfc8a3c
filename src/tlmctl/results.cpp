#include <filesystem>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/download.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

int Results(const Settings& settings, const std::string& word) {
  QorJMClient client;
  Connect(client, settings);
  SayHello(client, settings);
  const KnownJob job = FindJob(client, settings, word);
  BecomeOwner(client, settings, job.Handle);
  const std::string& directory = job.State.WorkDir;
  if (!directory.ends_with('/')) {
    Note(settings, Subject(job.Handle, job.State) + " runs in " + directory + " itself, and its results are there");
    return kGood;
  }
  std::error_code ignored;
  if (!std::filesystem::is_directory(directory, ignored)) {
    throw Failure{kRefused, "the results belong in " + directory + ", and there is no such directory here",
                  "they can be fetched on the machine and in the directory from which the job was submitted"};
  }
  const auto files = FetchResults(client, settings, job.Handle, directory);
  if (files.empty()) {
    Note(settings, Subject(job.Handle, job.State) + " is " + StatusText(job.State.Status) + " and has no new results");
  }
  Remember(job);
  PrintReceived(settings, job.Handle, files);
  return kGood;
}

}  // namespace

void AddResults(Program& program) {
  const auto job = std::make_shared<std::string>();
  CLI::App& command = program.AddCommand(
      {.Name = "results",
       .Description = "Fetch a job's new and changed result files",
       .Examples = {{"results 4", "to the directory from which job 4 was submitted"},
                    {"results last", "of my last job"}},
       .Operations = {"Hello", "GetJob", "TakeOwnership", "RequestResults", "ResultsReceived", "ResultsIncomplete"},
       .Details =
           "STEM.crc, the last of the results, lists them: each is checked against the size stated there, and asked\n"
           "for again if it is short. A finished job leaves the server once all its results are here, and its\n"
           "output with it: read that before."},
      [job](const Settings& settings) { return Results(settings, *job); });
  command.add_option("JOB", *job, "Handle, @ID or last")->required()->type_name(kJobValue);
}

}  // namespace tlm::ctl
