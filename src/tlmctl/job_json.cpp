#include "tlmctl/job_json.h"

#include "tlmctl/jobs.h"
#include "tlmctl/ledger.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

template <class Value>
Json OrNull(bool known, const Value& value) {
  return known ? Json(value) : Json();
}

}  // namespace

Json TimeJson(std::int64_t time) { return OrNull(time != 0, UtcTimeText(time)); }

Json JobJson(std::uint64_t handle, const Task& task) {
  return {
      {"handle", handle},
      {"id", OrNull(!IdOfNote(task.ClientNote).empty(), IdOfNote(task.ClientNote))},
      {"name", task.AnalysisID},
      {"status", StatusWord(task.Status)},
      {"progress", task.Progress},
      {"exit_code", OrNull(ProgramExitCode(task).has_value(), task.ExitCode)},
      {"results", ResultFlagsText(task.ResultFlags)},
      {"submitted", TimeJson(task.Scheduled)},
      {"started", TimeJson(task.Started)},
      {"elapsed_seconds", OrNull(HasEnded(task) && task.Started != 0 && !EndedUnderNoServer(task), task.Elapsed)},
      {"command", task.Command},
      {"directory", task.WorkDir},
      {"input_file", task.InputFile},
      {"result_stem", task.ResultStem},
      {"input_stem", task.InputStem},
      {"runs", RunClassWord(task.RunClass)},
      {"after", OrNull(task.Predecessor != 0, task.Predecessor)},
      {"priority", PriorityText(task.Priority)},
      {"complete_on_failure", task.CompleteOnFailure},
      {"note", PlainNote(task.ClientNote)},
      {"client_host", task.ClientHost},
      {"owner_port", OrNull(task.ClientPort != 0, task.ClientPort)},
      {"task_key", task.TaskKey},
      {"parent_process", task.ProcessID},
      {"task_type", task.TaskType},
      {"task_level", task.TaskLevel},
      {"changes", task.UpdateTimestamp},
  };
}

}  // namespace tlm::ctl
