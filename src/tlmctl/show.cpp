#include <iomanip>
#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr int kLabelWidth = 22;

void Line(const char* label, const std::string& value) {
  std::cout << std::left << std::setw(kLabelWidth) << label << (value.empty() ? kNothing : value) << '\n';
}

void Line(const char* label, std::uint64_t number) { Line(label, std::to_string(number)); }

const char* YesOrNo(bool value) { return value ? "yes" : "no"; }

void ShowCourse(const Task& task) {
  Line("State", StatusText(task.Status));
  Line("Progress", std::to_string(task.Progress) + " %");
  Line("Exit code", ExitCodeText(task));
  Line("Submitted", LocalTimeText(task.Scheduled));
  Line("Started", LocalTimeText(task.Started));
  Line("Elapsed", ElapsedText(task));
  Line("Results", ResultFlagsText(task.ResultFlags));
}

void ShowRequest(const Task& task) {
  Line("Command", task.Command);
  Line("Directory", task.WorkDir);
  Line("Input file", task.InputFile);
  Line("Result stem", task.ResultStem);
  Line("Input stem", task.InputStem);
  Line("Runs", RunClassText(task.RunClass));
  Line("Runs after job", task.Predecessor != 0 ? std::to_string(task.Predecessor) : kNothing);
  Line("Priority", PriorityText(task.Priority));
  Line("Complete on failure", YesOrNo(task.CompleteOnFailure));
  Line("Note", task.ClientNote);
}

void ShowOrigin(const Task& task) {
  Line("Client host", task.ClientHost);
  Line("Owner", task.ClientPort != 0 ? "the client at port " + std::to_string(task.ClientPort) : "nobody");
  Line("Task key", task.TaskKey);
  Line("Parent process", static_cast<std::uint64_t>(task.ProcessID));
  Line("Task type", task.TaskType);
  Line("Task level", task.TaskLevel);
  Line("Reserved time", static_cast<std::uint64_t>(task.ReservedTime));
  Line("Reserved flag", YesOrNo(task.ReservedFlag));
  Line("Changes", task.UpdateTimestamp);
}

ExitCode Show(const ServerOptions& server, std::uint64_t handle) {
  QorJMClient client;
  Connect(client, server);
  const Task task = FetchKnownJob(client, handle);
  Line("Job", handle);
  Line("Name", task.AnalysisID);
  ShowCourse(task);
  ShowRequest(task);
  ShowOrigin(task);
  return ExitCode::Good;
}

}  // namespace

void AddShow(Program& program) {
  const auto handle = std::make_shared<std::uint64_t>();
  CLI::App& command = program.AddCommand("show", "Show all that the server knows of a job",
                                         [handle](const auto& server) { return Show(server, *handle); });
  command.add_option("HANDLE", *handle, "What submit printed")->required();
}

}  // namespace tlm::ctl
