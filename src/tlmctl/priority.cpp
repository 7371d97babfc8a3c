#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/jobs.h"
#include "tlmctl/option_values.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

struct PriorityOptions {
  std::string Job;
  std::string Level;
  std::string Default;
  bool ForNewJobs = false;
};

int OfNewJobs(const Settings& settings, QorJMClient& client, const std::string& level) {
  if (!level.empty()) client.SetDefaultPriority(PriorityOf(level));
  const std::string priority = PriorityText(client.GetDefaultPriority());
  if (settings.Json) {
    PrintJson({{"default_priority", priority}});
  } else {
    std::cout << priority << '\n';
  }
  return kGood;
}

int OfJob(const Settings& settings, QorJMClient& client, const PriorityOptions& options) {
  const KnownJob job = FindJob(client, settings, options.Job);
  if (HasEnded(job.State)) {
    throw Failure{kRefused, Subject(job.Handle, job.State) + " has ended: " + StatusText(job.State.Status)};
  }
  if (!client.SetJobPriority(job.Handle, PriorityOf(options.Level))) throw UnknownJob(job.Handle);
  if (settings.Json) {
    PrintJson({{"handle", job.Handle}, {"priority", options.Level}});
  } else if (!settings.Quiet) {
    Say(Subject(job.Handle, job.State) + ": " + options.Level);
  }
  return kGood;
}

int Priority(const Settings& settings, const PriorityOptions& options) {
  if (!options.ForNewJobs && options.Level.empty()) {
    throw Failure{kUsage, "priority takes a job and a level, or --default", "--help tells what is possible"};
  }
  QorJMClient client;
  Connect(client, settings);
  return options.ForNewJobs ? OfNewJobs(settings, client, options.Default) : OfJob(settings, client, options);
}

}  // namespace

void AddPriority(Program& program) {
  const auto options = std::make_shared<PriorityOptions>();
  const auto byDefault = std::make_shared<CLI::Option*>();
  CLI::App& command = program.AddCommand(
      {.Name = "priority",
       .Description = "Set how much of the processors a job gets, or new jobs get",
       .Examples = {{"priority 4 normal", "of a job's processes, also of those that run"},
                    {"priority --default", "shows what new jobs get"},
                    {"priority --default normal", "sets it"}},
       .Operations = {"SetJobPriority", "SetDefaultPriority", "GetDefaultPriority", "GetJob"},
       .Details = "A server that does not run as root cannot raise the priority of what already runs."},
      [options, byDefault](const Settings& settings) {
        options->ForNewJobs = (*byDefault)->count() > 0;
        return Priority(settings, *options);
      });
  CLI::Option* job = command.add_option("JOB", options->Job, "Job whose priority is set")->type_name(kJobValue);
  AddPriorityLevel(command, "LEVEL", options->Level, "The priority")->needs(job);
  *byDefault = AddPriorityLevel(command, "--default", options->Default, "Of new jobs: show it, or set it")
                   ->expected(0, 1)
                   ->excludes(job);
}

}  // namespace tlm::ctl
