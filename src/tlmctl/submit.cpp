#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/course.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/new_job.h"

namespace tlm::ctl {

namespace {

struct SubmitOptions {
  Request Job;
  bool Watch = false;
};

int Submit(const Settings& settings, const SubmitOptions& options) {
  if (options.Job.DryRun) return PrintPlan(settings, options.Job);
  const Plan plan = MakePlan(options.Job);
  CatchInterrupts(kInterruptPatience);
  Link link(settings, [&](QorJMClient& client) {
    std::string serverDirectory;
    if (!options.Job.InPlace) client.MapClientDirectory(plan.Directory, serverDirectory);
  });
  link.Open();
  const LedgerEntry entry = SubmitNewJob(link, settings, options.Job, plan);
  PrintNewJob(settings, entry);
  if (!options.Watch) return kGood;
  return Course(link, settings, entry,
                {.Interrupted = OnInterrupt::Leave, .ShowOutput = false, .FetchResults = false, .Keep = true})
      .Follow();
}

}  // namespace

void AddSubmit(Program& program) {
  const auto options = std::make_shared<SubmitOptions>();
  CLI::App& command = program.AddCommand(
      {.Name = "submit",
       .Description = "Send a job and print its handle",
       .Examples = {{"submit --deck plate.inp heat2d", "runs 'heat2d plate.inp'; tlmctl results fetches plate.*"},
                    {"submit --queue --after 4 -- solve -v b.inp", "waits for job 4, and for its turn"},
                    {"submit --command 'mesh a; solve a' -i a.inp", "runs two programs, one after the other"},
                    {"submit --in-place --deck runs/a.inp solve", "runs in runs itself, which the server reaches"}},
       .Operations = {"Hello", "MapClientDirectory", "CheckClientFiles", "UpdateClientFiles", "PutFiles", "GetJob",
                      "SubmitJob", "SetJobPriority", "IsQueueRunning", "ListJobs", "TakeOwnership", "ListRemovedJobs",
                      "GetJobCount"},
       .Details = "A job succeeds if its program reports so to the server. For a program that knows nothing of job\n"
                  "managers give --complete-on-failure, else its job ends as Aborted; 'tlmctl run' does so by itself.\n"
                  "What the files are that travel is told by 'tlmctl run --help'."},
      [options](const Settings& settings) { return Submit(settings, *options); });
  AddRequestOptions(program, command, options->Job);
  command.add_flag("--complete-on-failure", options->Job.CompleteOnFailure,
                   "Count as success whatever the program reports");
  command.add_flag("--watch", options->Watch, "Follow the job to its end");
}

}  // namespace tlm::ctl
