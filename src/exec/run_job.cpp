#include "exec/run_job.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "exec/command_line.h"
#include "exec/completion.h"
#include "exec/kill.h"
#include "exec/launch.h"
#include "exec/result_files.h"
#include "exec/worker.h"
#include "platform/file.h"
#include "platform/thread.h"
#include "store/ownership.h"
#include "store/submission.h"
#include "util/mfile.h"

namespace tlm {

namespace {

using platform::File;
using platform::Process;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{1000};
constexpr std::uint32_t kLaunchFailedCode = 255;

enum class Outcome {
  Ended,    // go on with the next command
  Over,     // no further command is tried
  Stopping  // the server ends
};

void SetStatus(JobManagerState& state, Job& job, JobStatus status) REQUIRES(state.StateLock) {
  job.Status = status;
  state.Jobs.Changed(job);
}

// A job that is being run. Its directory is the same from the first deletion to the last look.
struct Run {
  JobRef Ref;
  ClientDirectory Directory;
  Clock::time_point Begin;
  bool IsOverdue = false;  // it has been ended for that
};

void DeleteFormerResults(const ClientDirectory& directory, const Job& job) {
  if (job.ResultStem == job.InputStem) return;
  std::vector<MFile> files = ResultFileScan(job, directory.Path()).value_or(std::vector<MFile>());
  if (!files.empty()) files.push_back(ResultManifest(job, directory.Path()));
  for (MFile& file : files) file.Remove();
}

// Empty if the job has left the table, or if its directory is not for clients; then no command of it is run.
std::optional<Run> PrepareRun(JobManagerState& state, JobRef ref, std::string& commands) {
  const MAutoLock lock(state.StateLock);
  WakeWorkers(state);
  const Job* job = state.Jobs.Find(ref);
  if (!job) return std::nullopt;
  std::optional<ClientDirectory> directory = ClientDirectory::Open(state, job->TempDir);
  if (!directory) return std::nullopt;
  DeleteFormerResults(*directory, *job);
  DeleteOutFile(*directory, *job);
  commands = job->Command + ";";
  return Run{ref, *std::move(directory), Clock::now()};
}

// Removed while it was being started, or killed between two commands: nothing further is started.
bool IsGivenUp(const Job* job) { return !job || job->Status == Aborted || job->Killed != 0; }

// The process, if there is one, becomes the job's. If the job was given up while its process was being started, that is
// ended.
void TakeProcess(JobManagerState& state, const Run& run, const std::shared_ptr<Process>& process) {
  const MAutoLock lock(state.StateLock);
  const std::int32_t pid = process ? process->Id() : 0;
  if (process) state.ProcessHandles[pid] = process;
  Job* job = state.Jobs.Find(run.Ref);
  const bool isGivenUp = IsGivenUp(job);
  if (isGivenUp && process) process->Terminate();
  if (!job) return;
  ApplyPriority(state, pid, job->Priority);
  state.Jobs.Detach(job->Pid);  // the process of the command before has ended
  job->Pid = pid;
  job->Started = platform::SecondsSince1970();
  if (isGivenUp) return state.Jobs.Changed(*job);
  SetStatus(state, *job, process ? Running : LaunchFailed);
  NotifyJobChange(state, *job, job->Status);
}

// Starts the command. Null if no process came of it: then nothing further is tried. The lock is not held meanwhile, so
// that a slow start holds up nobody.
std::shared_ptr<Process> StartCommand(JobManagerState& state, const Run& run, std::vector<std::string> tokens) {
  platform::LaunchRequest request;
  std::optional<LaunchUnderWay> launch;
  std::uint32_t priority = 0;
  {
    const MAutoLock lock(state.StateLock);
    const Job* job = state.Jobs.Find(run.Ref);
    if (IsGivenUp(job) || state.StopRequested) return nullptr;
    priority = job->Priority;
    tokens.front().insert(0, job->Installed->BinPath);
    request = RequestOf(state, *job, run.Directory, tokens);
    launch.emplace(state);
  }
  std::shared_ptr<Process> process = LaunchProcess(request);
  if (process) process->SetPriority(priority);  // before its first children, though the lock may be long in coming
  TakeProcess(state, run, process);
  return process;
}

// The words about a process that has ended.
void RecordEnd(JobManagerState& state, Job& job, std::uint32_t exitCode) REQUIRES(state.StateLock) {
  if (exitCode == kLaunchFailedCode) {
    if (job.Status == Running) SetStatus(state, job, LaunchFailed);
  } else {
    std::puts("Done");
  }
  // The clock may have been set back meanwhile.
  job.Elapsed = static_cast<std::uint32_t>(std::max<std::int64_t>(platform::SecondsSince1970() - job.Started, 0));
}

std::optional<File> OpenOutput(const Run& run, const Job& job) {
  return File::Open(OutFileIn(run.Directory, job), File::Mode::Append, run.Directory.Links());
}

// A job that has taken as long as it may says so in its output.
bool TellOverdue(const JobManagerState& state, const Job& job, const Run& run) REQUIRES(state.StateLock) {
  const std::chrono::seconds longest = state.Restrictions.LongestRun;
  if (longest.count() == 0 || run.IsOverdue || job.Killed != 0 || Clock::now() - run.Begin < longest) return false;
  if (std::optional<File> out = OpenOutput(run, job)) {
    static_cast<void>(out->Write("\nEnded after " + std::to_string(longest.count()) +
                                 " seconds, the longest time that a job may take\n"));
  }
  return true;
}

enum class Polled { Runs, HasEnded, Overdue, Stop };

// One pass. An end counts only if it was seen before the reports of the process were waited for.
Polled PollProcess(JobManagerState& state, const Run& run, std::int32_t pid, bool hasEnded) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(run.Ref);
  std::uint32_t exitCode = platform::kUnknownExitCode;
  // What an ended leader left of its group ends with it.
  if (const auto process = ProcessHandle(state, pid); hasEnded && process && job && job->Killed != 0)
    process->Terminate();
  const bool isOver = hasEnded && TestProcessEnd(state, pid, exitCode);
  if (job) job->ExitCode = exitCode;
  if (isOver) {
    if (job) RecordEnd(state, *job, exitCode);
    return Polled::HasEnded;
  }
  if (state.StopRequested) return Polled::Stop;
  if (job && TellOverdue(state, *job, run)) return Polled::Overdue;
  if (job && state.ListeningSessions != 0) ForwardOutput(state, *job);
  return Polled::Runs;
}

Outcome FollowProcess(JobManagerState& state, Run& run, const Process& process) {
  const std::int32_t pid = process.Id();
  std::chrono::milliseconds pause{0};
  while (true) {
    const bool hasEnded = process.WaitForEnd(pause, &state.Stopping);
    if (hasEnded) AwaitReports(state);
    switch (PollProcess(state, run, pid, hasEnded)) {
      case Polled::Overdue:
        run.IsOverdue = true;  // and not Killed: it stays for its owner to see, since nobody has removed it
        KillProcess(state, pid);
        break;
      case Polled::HasEnded:
        return run.IsOverdue ? Outcome::Over : Outcome::Ended;
      case Polled::Stop:
        // Without the lock, so that the processes of several workers are stopped side by side.
        KillProcess(state, pid);
        return Outcome::Stopping;
      case Polled::Runs:
        pause = kPollInterval;
        if (hasEnded) platform::Sleep(kEndPause);
    }
  }
}

// A command line whose quote is never closed cannot be run: the job's output says so.
void RefuseCommand(JobManagerState& state, const Run& run, const std::string& rest) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(run.Ref);
  if (IsGivenUp(job)) return;
  if (std::optional<File> out = OpenOutput(run, *job)) {
    static_cast<void>(out->Write(FailureText(rest)));
  }
  SetStatus(state, *job, LaunchFailed);
  NotifyJobChange(state, *job, job->Status);
}

bool IsStopping(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  return state.StopRequested;
}

Outcome RunCommands(JobManagerState& state, Run& run, std::string_view buffer) {
  Outcome outcome = Outcome::Ended;
  while (!buffer.empty() && outcome == Outcome::Ended) {
    std::vector<std::string> tokens;
    if (!NextCommand(buffer, tokens)) {
      buffer.remove_suffix(1);  // the end that was put behind it
      RefuseCommand(state, run, std::string(buffer));
      return Outcome::Over;
    }
    if (tokens.empty()) continue;
    const std::shared_ptr<Process> process = StartCommand(state, run, std::move(tokens));
    if (process) {
      outcome = FollowProcess(state, run, *process);
    } else {
      outcome = IsStopping(state) ? Outcome::Stopping : Outcome::Over;
    }
  }
  return outcome;
}

}  // namespace

void ForwardOutput(JobManagerState& state, Job& job) {
  const std::uint64_t size = OutputSize(job);
  for (Session* session : state.SessionList) StepOutput(*session, job, size);
}

void RunJob(JobManagerState& state, JobRef ref) {
  std::string commands;
  std::optional<Run> run = PrepareRun(state, ref, commands);
  if (run && RunCommands(state, *run, commands) == Outcome::Stopping) return;
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (!job) return ReleaseRunSlot(state);
  if (job->Status == Starting) SetStatus(state, *job, LaunchFailed);  // there was nothing to run
  CompleteJob(state, *job, run ? &run->Directory : nullptr, run && run->IsOverdue);
}

}  // namespace tlm
