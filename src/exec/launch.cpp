#include "exec/launch.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <utility>

#include "exec/command_line.h"
#include "libtsenv/runtime_identity.h"
#include "platform/host.h"
#include "platform/stop_event.h"
#include "store/submission.h"

namespace tlm {

using platform::Process;

namespace {

// No launch should take that long. One that does, for want of a file system that answers, holds up nobody else.
constexpr std::chrono::seconds kLaunchPatience{5};

}  // namespace

LaunchUnderWay::LaunchUnderWay(JobManagerState& state) : state_(state), number_(++state.LastLaunch) {
  state.Launches.insert(number_);
}

LaunchUnderWay::~LaunchUnderWay() {
  const MAutoLock lock(state_.StateLock);
  state_.Launches.erase(number_);
  state_.LaunchDone.RaiseForAll();
}

void AwaitItsLaunch(JobManagerState& state, std::int32_t pid) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + kLaunchPatience;
  std::optional<std::uint64_t> last;  // of those that can have been the process's
  std::uint64_t number = 0;
  do {
    number = state.LaunchDone.Number();
    const MAutoLock lock(state.StateLock);
    if (!last) last = state.LastLaunch;
    if (state.Launches.empty() || *state.Launches.begin() > *last || state.Jobs.FindByPid(pid)) return;
  } while (state.LaunchDone.WaitFor(number, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())));
}

platform::LaunchRequest RequestOf(const JobManagerState& state, const Job& job, const ClientDirectory& directory,
                                  const std::vector<std::string>& tokens) {
  platform::LaunchRequest request;
  request.CommandLine = JoinTokens(tokens);
  request.Environment = ChildEnvironment(job.Installed->Env, job.TaskKey, job.ProcessID);
  request.Directory = directory.Path();
  request.OutputFile = OutFileIn(directory, job);
  request.OutputMayBeLink = !directory.IsHeld();
  request.FailureText = FailureText(request.CommandLine);
  request.OwnGroup = state.KillViaEvent;
  return request;
}

std::shared_ptr<Process> LaunchProcess(const platform::LaunchRequest& request) {
  std::puts(request.CommandLine.c_str());
  const auto before = platform::StopEventTime();
  std::optional<Process> process = Process::Launch(request);
  if (!process) return nullptr;
  platform::RemoveStopEventBefore(StopEventName(process->Id()), before);
  return std::make_shared<Process>(std::move(*process));
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
