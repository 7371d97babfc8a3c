#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/details.h"
#include "tlmctl/job_json.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

const char* YesOrNo(bool value) { return value ? "yes" : "no"; }

void ShowCourse(const Task& task) {
  PrintDetail("State", StatusText(task.Status));
  PrintDetail("Progress", std::to_string(task.Progress) + " %");
  PrintDetail("Exit code", ExitCodeText(task));
  PrintDetail("Submitted", LocalTimeText(task.Scheduled));
  PrintDetail("Started", LocalTimeText(task.Started));
  PrintDetail("Elapsed", ElapsedText(task));
  PrintDetail("Results", ResultFlagsText(task.ResultFlags));
}

void ShowRequest(const Task& task) {
  PrintDetail("Command", task.Command);
  PrintDetail("Directory", task.WorkDir);
  PrintDetail("Input file", task.InputFile);
  PrintDetail("Result stem", task.ResultStem);
  PrintDetail("Input stem", task.InputStem);
  PrintDetail("Runs", RunClassText(task.RunClass));
  PrintDetail("Runs after job", task.Predecessor != 0 ? std::to_string(task.Predecessor) : kNothing);
  PrintDetail("Priority", PriorityText(task.Priority));
  PrintDetail("Complete on failure", YesOrNo(task.CompleteOnFailure));
  PrintDetail("Note", PlainNote(task.ClientNote));
}

void ShowOrigin(const Task& task) {
  PrintDetail("Id", IdOfNote(task.ClientNote));
  PrintDetail("Client host", task.ClientHost);
  PrintDetail("Owner", task.ClientPort != 0 ? "the client at port " + std::to_string(task.ClientPort) : "nobody");
  PrintDetail("Task key", task.TaskKey);
  PrintDetail("Parent process", std::to_string(task.ProcessID));
  PrintDetail("Task type", std::to_string(task.TaskType));
  PrintDetail("Task level", std::to_string(task.TaskLevel));
  PrintDetail("Reserved time", std::to_string(task.ReservedTime));
  PrintDetail("Reserved flag", YesOrNo(task.ReservedFlag));
  PrintDetail("Changes", std::to_string(task.UpdateTimestamp));
}

int Show(const Settings& settings, const std::string& word) {
  QorJMClient client;
  Connect(client, settings);
  const KnownJob job = FindJob(client, settings, word);
  if (settings.Json) {
    Json fields = JobJson(job.Handle, job.State);
    fields["submitted_from"] = job.Entry ? Json(job.Entry->From) : Json();
    fields["command_line"] = job.Entry ? Json(job.Entry->Words) : Json();
    PrintJson(fields);
    return kGood;
  }
  if (settings.Quiet) {
    std::cout << StatusWord(job.State.Status) << '\n';
    return kGood;
  }
  PrintDetail("Job", std::to_string(job.Handle));
  PrintDetail("Name", job.State.AnalysisID);
  ShowCourse(job.State);
  ShowRequest(job.State);
  ShowOrigin(job.State);
  if (job.Entry) PrintSubmission(*job.Entry);
  return kGood;
}

}  // namespace

void AddShow(Program& program) {
  const auto job = std::make_shared<std::string>();
  CLI::App& command = program.AddCommand(
      {.Name = "show",
       .Description = "Show all that the server knows of a job",
       .Examples = {{"show 4", "job 4"}, {"show last", "my last job"}, {"show -q last", "its state alone, in a word"}},
       .Operations = {"GetJob"}},
      [job](const Settings& settings) { return Show(settings, *job); });
  command.add_option("JOB", *job, kJobHelp)->required()->type_name(kJobValue);
}

}  // namespace tlm::ctl
