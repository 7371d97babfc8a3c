#include <map>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/course.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/new_job.h"

namespace tlm::ctl {

namespace {

constexpr char kDetails[] =
    R"(The command's program lies in the bin directory of the server's installation. Words of the command that name
files of the directory, the deck, and what --input names are sent to the server if it lacks them; the job runs in
a directory of its own there. Its output appears here as it is written, and so do its results, the files with its
stem: that of the first input file, or else the program's name with some digits, so that such jobs do not meet.
A result that is older than the job, one of a former run for instance, takes the place of no file that is here.

The command's exit code is that of tlmctl. Success goes by it, too; for a program that reports success to the
server itself, give --reports.

A connection that is lost is made again. Ctrl-C asks whether the job is to go on or to be removed; without a
terminal it goes on unless --on-interrupt says otherwise.)";

struct RunOptions {
  Request Job;
  CourseOptions Course;
  bool Reports = false;
};

int Run(const Settings& settings, RunOptions options) {
  options.Job.CompleteOnFailure = !options.Reports;
  if (options.Job.DryRun) return PrintPlan(settings, options.Job);
  const Plan plan = MakePlan(options.Job);
  options.Course.FetchResults = !options.Job.InPlace;
  CatchInterrupts(kInterruptPatience);
  std::uint64_t handle = 0;
  Link link(settings, [&](QorJMClient& client) {
    std::string serverDirectory;
    if (!options.Job.InPlace) client.MapClientDirectory(plan.Directory, serverDirectory);
    client.SetListening(true);  // else what a job writes on another server is not fetched
    if (handle != 0) client.TakeOwnership(handle);
  });
  link.Open();
  const LedgerEntry entry = SubmitNewJob(link, settings, options.Job, plan);
  handle = entry.Handle;
  if (settings.Json) PrintJson({{"event", "submitted"}, {"handle", entry.Handle}, {"id", entry.Id}});
  Note(settings, "job " + std::to_string(handle) + ' ' + entry.Name + " submitted to " + entry.Server +
                     (options.Reports ? "" : "; its exit code decides about success"));
  return Course(link, settings, entry, options.Course).Follow();
}

}  // namespace

void AddRun(Program& program) {
  const auto options = std::make_shared<RunOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "run",
       .Description = "Run a command on the server, with its input from here and its output and results back here",
       .Examples = {{"run -- heat2d plate.inp", "sends plate.inp, shows the output, fetches plate.*"},
                    {"run -i mesh.dat -- solve -v model.inp", "sends mesh.dat, too"},
                    {"run --dry-run -- heat2d plate.inp", "says what would be sent"}},
       .Operations = {"Hello",      "MapClientDirectory", "CheckClientFiles", "UpdateClientFiles",
                      "PutFiles",   "SubmitJob",          "SetJobPriority",   "IsQueueRunning",
                      "GetJob",     "ListJobs",           "SetListening",     "TakeOwnership",
                      "ReadOutput", "RequestResults",     "ResultsReceived",  "ResultsIncomplete",
                      "RemoveJob",  "ListRemovedJobs",    "ReleaseJob",       "GetJobCount"},
       .Details = kDetails},
      [options](const Settings& settings) { return Run(settings, *options); });
  AddRequestOptions(program, command, options->Job);
  command.add_flag("--reports", options->Reports, "The program reports success to the server itself");
  command.add_flag("--keep", options->Course.Keep, "Leave a job that did not succeed on the server");
  static const std::map<std::string, OnInterrupt> kAnswers{{"leave", OnInterrupt::Leave},
                                                           {"remove", OnInterrupt::Remove}};
  const auto choose = [options](const std::string& word) {
    const auto answer = kAnswers.find(word);
    if (answer == kAnswers.end()) throw CLI::ValidationError("--on-interrupt", "leave or remove, not " + word);
    options->Course.Interrupted = answer->second;
  };
  command.add_option_function<std::string>("--on-interrupt", choose, "What Ctrl-C does with the job: leave or remove")
      ->type_name("{leave,remove}");
}

}  // namespace tlm::ctl
