// What the end of a job means, from its state alone.
#include "platform/process.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kLargestExitCode = 255;

}  // namespace

bool HasEnded(const Task& task) { return task.Status != Queued && task.Status != Starting && task.Status != Running; }

bool HasSucceeded(const Task& task) { return task.Status == Finished || task.Status == Removed; }

bool EndedElsewhere(const Task& task) {
  return HasEnded(task) && task.RunClass == kRunDistributed && task.Started == 0;
}

// Such a process has neither a stem nor an end that the server measures.
bool EndedUnderNoServer(const Task& task) {
  if (!HasEnded(task) || task.Started == 0) return false;
  const bool wasAttached = task.ResultStem.empty() && task.Started == task.Scheduled && task.Elapsed == 0;
  return task.ExitCode == platform::kUnknownExitCode || (wasAttached && task.ExitCode == 0);
}

int ExitCodeOf(const Task& task, bool removed) {
  if (removed && !HasSucceeded(task)) return kAborted;
  if (task.Status == LaunchFailed) return kLaunchFailed;
  if (HasSucceeded(task) && EndedElsewhere(task) && task.CompleteOnFailure) return kUnknown;
  const bool known = task.ExitCode <= kLargestExitCode;
  if (HasSucceeded(task)) return known ? static_cast<int>(task.ExitCode) : kGood;
  return known && task.ExitCode != 0 ? static_cast<int>(task.ExitCode) : kAborted;
}

std::optional<int> ProgramExitCode(const Task& task) {
  const bool known = ExitCodeText(task) != kNothing && !EndedUnderNoServer(task) && task.ExitCode <= kLargestExitCode;
  return known ? std::optional(static_cast<int>(task.ExitCode)) : std::nullopt;
}

}  // namespace tlm::ctl
