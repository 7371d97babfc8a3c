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
    "The command's program lies in the bin directory of the server's installation. Words of the command that name\n"
    "files of the directory, the deck, and what --input names are sent to the server if it lacks them; the job runs "
    "in\n"
    "a directory of its own there. Its output appears here as it is written, and so do its results, the files with "
    "its\n"
    "stem. The command's exit code is that of tlmctl.\n\n"
    "Success goes by the exit code. For a program that reports success to the server itself, give --reports.\n\n"
    "A connection that is lost is made again. Ctrl-C asks whether the job is to go on or to be removed; without a\n"
    "terminal it goes on unless --on-interrupt says otherwise.";

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
  CatchInterrupts();
  std::uint64_t handle = 0;
  Link link(settings, [&](QorJMClient& client) {
    std::string serverDirectory;
    if (!options.Job.InPlace) client.MapClientDirectory(plan.Directory, serverDirectory);
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
       .Operations = {"Hello", "MapClientDirectory", "CheckClientFiles", "PutFiles", "SubmitJob", "SetJobPriority",
                      "IsQueueRunning", "GetJob", "ListJobs", "TakeOwnership", "ReadOutput", "RequestResults",
                      "ResultsReceived", "ResultsIncomplete", "RemoveJob", "ListRemovedJobs", "ReleaseJob",
                      "GetJobCount"},
       .Details = kDetails},
      [options](const Settings& settings) { return Run(settings, *options); });
  AddRequestOptions(program, command, options->Job);
  command.add_flag("--reports", options->Reports, "The program reports success to the server itself");
  command.add_flag("--keep", options->Course.Keep, "Leave a job that did not succeed on the server");
  static const std::map<std::string, OnInterrupt> kAnswers{{"leave", OnInterrupt::Leave},
                                                           {"remove", OnInterrupt::Remove}};
  command.add_option("--on-interrupt", options->Course.Interrupted, "What Ctrl-C does with the job: leave or remove")
      ->type_name("ANSWER")
      ->transform(CLI::CheckedTransformer(kAnswers).description(""));
}

}  // namespace tlm::ctl
