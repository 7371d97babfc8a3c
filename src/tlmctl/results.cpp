#include <filesystem>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/download.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

struct ResultsOptions {
  std::string Job;
  std::string Directory = ".";
};

// Where the results may be written: where the job was submitted from here, or what the user has named. A server, or who
// has submitted the job to it, is not to choose among all directories of this machine.
std::string DirectoryFor(const KnownJob& job, const ResultsOptions& options) {
  const std::string& theirs = job.State.WorkDir;
  if (job.Entry && job.Entry->Directory == theirs) return theirs;
  const std::filesystem::path ours = std::filesystem::absolute(options.Directory).lexically_normal() / "";
  if (!job.Entry && ours.lexically_normal() == theirs) return theirs;
  throw Failure{kRefused,
                "the results of " + Subject(job.Handle, job.State) + " belong in " + theirs +
                    ", which is not the directory from which it was submitted here",
                job.Entry ? "do not trust this server" : "if that is right, go there, or name it with --dir"};
}

int Results(const Settings& settings, const ResultsOptions& options) {
  QorJMClient client;
  Connect(client, settings);
  SayHello(client, settings);
  const KnownJob job = FindJob(client, settings, options.Job);
  if (!job.State.WorkDir.ends_with('/')) {
    Note(settings,
         Subject(job.Handle, job.State) + " runs in " + job.State.WorkDir + " itself, and its results are there");
    return kGood;
  }
  const std::string directory = DirectoryFor(job, options);
  std::error_code ignored;
  if (!std::filesystem::is_directory(directory, ignored)) {
    throw Failure{kRefused, "the results belong in " + directory + ", and there is no such directory here",
                  "they can be fetched on the machine and in the directory from which the job was submitted"};
  }
  BecomeOwner(client, settings, job.Handle);
  const auto files = FetchResults(client, settings, job, directory);
  AwaitArrival(client);
  if (files.empty()) {
    Note(settings, Subject(job.Handle, job.State) + " is " + StatusText(job.State.Status) + " and has no new results");
  }
  PrintReceived(settings, job.Handle, files);
  return kGood;
}

}  // namespace

void AddResults(Program& program) {
  const auto options = std::make_shared<ResultsOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "results",
       .Description = "Fetch a job's new and changed result files",
       .Examples = {{"results 4", "to the directory from which job 4 was submitted"},
                    {"results last", "of my last job"}},
       .Operations = {"Hello", "GetJob", "TakeOwnership", "RequestResults", "ResultsReceived", "ResultsIncomplete",
                      "GetJobCount"},
       .Details =
           "STEM.crc, the last of the results, lists them: each is checked against the size stated there, and asked\n"
           "for again if it is short. A finished job leaves the server once all its results are here, and its\n"
           "output with it: read that before."},
      [options](const Settings& settings) { return Results(settings, *options); });
  command.add_option("JOB", options->Job, kJobHelp)->required()->type_name(kJobValue);
  command
      .add_option("--dir", options->Directory,
                  "Of a job that was not submitted by tlmctl from here: the directory from which it was")
      ->type_name(kDirectoryValue);
}

}  // namespace tlm::ctl
