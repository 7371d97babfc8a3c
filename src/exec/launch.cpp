#include "exec/launch.h"

#include <cstdio>

#include "exec/command_line.h"
#include "libtsenv/runtime_identity.h"
#include "platform/host.h"
#include "platform/stop_event.h"
#include "store/submission.h"

namespace tlm {

using platform::Process;

std::int32_t LaunchProcess(JobManagerState& state, const Job& job, const ClientDirectory& directory,
                           const std::vector<std::string>& tokens) {
  platform::LaunchRequest request;
  request.CommandLine = JoinTokens(tokens);
  request.Environment = ChildEnvironment(job.Env, job.TaskKey, job.ProcessID);
  request.Directory = directory.Path();
  request.OutputFile = OutFileIn(directory, job);
  request.OutputMayBeLink = !directory.IsHeld();
  request.FailureText = FailureText(request.CommandLine);
  request.OwnGroup = state.KillViaEvent;
  std::puts(request.CommandLine.c_str());

  const auto before = platform::StopEventTime();
  std::optional<Process> process = Process::Launch(request);
  if (!process) return 0;
  const std::int32_t pid = process->Id();
  platform::RemoveStopEventBefore(StopEventName(pid), before);
  state.ProcessHandles[pid] = std::make_shared<Process>(std::move(*process));
  return pid;
}

std::shared_ptr<Process> ProcessHandle(JobManagerState& state, std::int32_t pid) {
  const auto found = state.ProcessHandles.find(pid);
  return found == state.ProcessHandles.end() ? nullptr : found->second;
}

void HoldProcess(JobManagerState& state, std::int32_t pid) {
  // A stop of the job must not become one of the server.
  if (pid == platform::ProcessId() || ProcessHandle(state, pid)) return;
  if (std::optional<Process> process = Process::Open(pid)) {
    state.ProcessHandles[pid] = std::make_shared<Process>(std::move(*process));
  }
}

bool TestProcessEnd(JobManagerState& state, std::int32_t pid, std::uint32_t& exitCode) {
  exitCode = platform::kUnknownExitCode;
  if (const std::shared_ptr<Process> process = ProcessHandle(state, pid)) {
    const std::optional<std::uint32_t> code = process->ExitCode();
    if (!code) return false;
    exitCode = *code;
    state.ProcessHandles.erase(pid);
    platform::RemoveStopEvent(StopEventName(pid));
  }
  return true;
}

void ApplyPriority(JobManagerState& state, std::int32_t pid, std::uint32_t priority) {
  if (const std::shared_ptr<Process> process = ProcessHandle(state, pid)) process->SetPriority(priority);
}

std::string StopEventName(std::int32_t pid) { return Identity().RUNTIME_JM_VERSION + "_" + std::to_string(pid); }

}  // namespace tlm
