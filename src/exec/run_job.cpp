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

void DeleteFormerResults(const Job& job) {
  if (job.ResultStem == job.InputStem) return;
  std::vector<MFile> files = ResultFileScan(job).value_or(std::vector<MFile>());
  if (!files.empty()) files.push_back(ResultManifest(job));
  for (MFile& file : files) file.Remove();
}

// The command buffer; empty if the job has left the table.
std::string PrepareRun(JobManagerState& state, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  WakeWorkers(state);
  const Job* job = state.Jobs.Find(ref);
  if (!job) return "";
  DeleteFormerResults(*job);
  DeleteOutFile(*job);
  return job->Command + ";";
}

// Removed while it was being started, or killed between two commands: nothing further is started.
bool IsGivenUp(const Job* job) { return !job || job->Status == Aborted || job->Killed != 0; }

// Starts the command. 0 if no process came of it: then nothing further is tried.
std::int32_t StartCommand(JobManagerState& state, JobRef ref, std::vector<std::string> tokens) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (IsGivenUp(job) || state.StopRequested) return 0;
  tokens.front().insert(0, job->BinPath);
  const std::int32_t pid = LaunchProcess(state, *job, tokens);
  ApplyPriority(state, pid, job->Priority);
  state.Jobs.Detach(job->Pid);  // the process of the command before has ended
  job->Pid = pid;
  job->Started = platform::SecondsSince1970();
  SetStatus(state, *job, pid != 0 ? Running : LaunchFailed);
  NotifyJobChange(state, *job, job->Status);
  return pid;
}

// The words about a process that has ended.
void RecordEnd(JobManagerState& state, Job& job, std::uint32_t exitCode) REQUIRES(state.StateLock) {
  if (exitCode == kLaunchFailedCode) {
    SetStatus(state, job, LaunchFailed);
  } else {
    std::puts("Done");
  }
  // The clock may have been set back meanwhile.
  job.Elapsed = static_cast<std::uint32_t>(std::max<std::int64_t>(platform::SecondsSince1970() - job.Started, 0));
}

using Clock = std::chrono::steady_clock;

// A job that has taken as long as it may says so in its output.
bool TellOverdue(const JobManagerState& state, const Job& job, Clock::time_point begin) REQUIRES(state.StateLock) {
  const std::chrono::seconds longest = state.Restrictions.LongestRun;
  if (longest.count() == 0 || job.Killed != 0 || Clock::now() - begin < longest) return false;
  if (std::optional<File> out = File::Open(job.OutFile, File::Mode::Append)) {
    static_cast<void>(out->Write("\nEnded after " + std::to_string(longest.count()) +
                                 " seconds, the longest time that a job may take\n"));
  }
  return true;
}

enum class Polled { Runs, HasEnded, Overdue, Stop };

Polled PollProcess(JobManagerState& state, JobRef ref, std::int32_t pid, Clock::time_point begin) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  std::uint32_t exitCode = 0;
  const bool ended = TestProcessEnd(state, pid, exitCode);
  if (job) job->ExitCode = exitCode;
  if (ended) {
    if (job) RecordEnd(state, *job, exitCode);
    return Polled::HasEnded;
  }
  if (state.StopRequested) return Polled::Stop;
  if (job && TellOverdue(state, *job, begin)) return Polled::Overdue;
  if (job && state.ListeningSessions != 0) ForwardOutput(state, *job);
  return Polled::Runs;
}

void EndOverdue(JobManagerState& state, JobRef ref, std::int32_t pid) {
  const std::int32_t killed = KillProcess(state, pid);
  const MAutoLock lock(state.StateLock);
  if (Job* job = state.Jobs.Find(ref)) job->Killed = killed;
}

Outcome FollowProcess(JobManagerState& state, JobRef ref, std::int32_t pid, Clock::time_point begin) {
  while (true) {
    switch (PollProcess(state, ref, pid, begin)) {
      case Polled::Overdue:
        EndOverdue(state, ref, pid);
        break;
      case Polled::HasEnded:
        return Outcome::Ended;
      case Polled::Stop:
        // Without the lock, so that the processes of several workers are stopped side by side.
        KillProcess(state, pid);
        return Outcome::Stopping;
      case Polled::Runs:
        platform::Sleep(kPollInterval);
    }
  }
}

// A command line whose quote is never closed cannot be run: the job's output says so.
void RefuseCommand(JobManagerState& state, JobRef ref, const std::string& rest) {
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (IsGivenUp(job)) return;
  if (std::optional<File> out = File::Open(job->OutFile, File::Mode::Append)) {
    static_cast<void>(out->Write(FailureText(rest)));
  }
  SetStatus(state, *job, LaunchFailed);
  NotifyJobChange(state, *job, job->Status);
}

Outcome RunCommands(JobManagerState& state, JobRef ref, std::string_view buffer) {
  Outcome outcome = Outcome::Ended;
  const auto begin = Clock::now();
  while (!buffer.empty() && outcome == Outcome::Ended) {
    std::vector<std::string> tokens;
    if (!NextCommand(buffer, tokens)) {
      buffer.remove_suffix(1);  // the end that was put behind it
      RefuseCommand(state, ref, std::string(buffer));
      return Outcome::Over;
    }
    if (tokens.empty()) continue;
    const std::int32_t pid = StartCommand(state, ref, std::move(tokens));
    outcome = pid != 0 ? FollowProcess(state, ref, pid, begin) : Outcome::Over;
  }
  return outcome;
}

}  // namespace

void ForwardOutput(JobManagerState& state, Job& job) {
  const std::uint64_t size = OutputSize(job);
  for (Session* session : state.SessionList) StepOutput(*session, job, size);
}

void RunJob(JobManagerState& state, JobRef ref) {
  if (RunCommands(state, ref, PrepareRun(state, ref)) == Outcome::Stopping) return;
  const MAutoLock lock(state.StateLock);
  Job* job = state.Jobs.Find(ref);
  if (!job) return ReleaseRunSlot(state);
  if (job->Status == Starting) SetStatus(state, *job, LaunchFailed);  // there was no command in it
  CompleteJob(state, *job);
}

}  // namespace tlm
