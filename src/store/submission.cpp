#include "store/submission.h"

#include <cstdio>

#include "platform/file_system.h"
#include "platform/thread.h"
#include "store/trace.h"
#include "util/mfile.h"

namespace tlm {

namespace {

using platform::kPathSeparator;

bool EndedBadly(const Job* job) { return job && (job->Status == Aborted || job->Status == LaunchFailed); }

void CopySubmission(Job& job, const Submission& submission) {
  job.AnalysisID = submission.AnalysisID;
  job.WorkDir = submission.WorkDir;
  job.Command = submission.Command;
  job.InputFile = submission.InputFile;
  job.ResultStem = submission.ResultStem;
  job.InputStem = submission.InputStem;
  job.ClientNote = submission.ClientNote;
  job.RunClass = submission.RunClass;
  job.TaskKey = submission.TaskKey;
  job.ProcessID = submission.ProcessID;
  job.ReservedFlag = submission.ReservedFlag;
  job.CompleteOnFailure = submission.CompleteOnFailure;
}

std::string OutFileName(const Job& job) { return kPathSeparator + job.ResultStem + "_out"; }

void SetPaths(JobManagerState& state, Job& job, const Session& session) REQUIRES(state.StateLock) {
  state.Jobs.SetDirectory(job, ServerDirectory(session, job.WorkDir));
  job.OutFile = job.TempDir + OutFileName(job);
  job.Installed = session.Installed;
}

}  // namespace

Job* AddSubmittedJob(JobManagerState& state, const Session& session, const Submission& submission) {
  Job* predecessor = state.Jobs.Find(submission.Predecessor);
  if (submission.Predecessor != 0 && !predecessor) {
    Trace(state, "Job [%s] submitted with an invalid Predecessor\n", submission.AnalysisID.c_str());
    return nullptr;
  }
  Job& job = state.Jobs.Add();
  CopySubmission(job, submission);
  job.ClientHost = session.ClientHost;
  job.ClientPort = session.ClientPort;
  job.Status = EndedBadly(predecessor) ? predecessor->Status : std::uint32_t{Queued};
  job.Scheduled = platform::SecondsSince1970();
  job.Priority = state.DefaultPriority;
  SetPaths(state, job, session);
  if (const auto directory = ClientDirectory::Open(state, job.TempDir)) DeleteOutFile(*directory, job);

  if (Job* creator = state.Jobs.Find(session.AttachedJob)) {
    creator->Lite = true;
    state.Jobs.Changed(*creator);
  }
  state.Jobs.SetCreator(job, session.AttachedJob);
  if (predecessor) {
    ++predecessor->Dependents;
    state.Jobs.Changed(*predecessor);
  }
  state.Jobs.SetPredecessor(job, submission.Predecessor);
  return &job;
}

const std::string& ServerDirectory(const Session& session, const std::string& workDir) {
  const auto mapped = session.DirectoryMap.find(workDir);
  return mapped == session.DirectoryMap.end() ? workDir : mapped->second;
}

std::string OutFileIn(const ClientDirectory& directory, const Job& job) { return directory.Path() + OutFileName(job); }

void DeleteOutFile(const ClientDirectory& directory, const Job& job) {
  MFile file(OutFileIn(directory, job));
  const bool isThere = file.Exists() || (directory.IsHeld() && platform::IsLink(file.Path()));
  if (isThere && !file.Remove()) std::fprintf(stderr, "Couldn't delete %s\n", job.OutFile.c_str());
}

Attachment AttachProcess(JobManagerState& state, Session& session, std::int32_t pid, const std::string& command,
                         const std::string& directory) {
  Job* job = state.Jobs.FindByPid(pid);
  const bool isStranger = !job;
  if (isStranger) {
    job = &state.Jobs.Add();
    job->AnalysisID = CommandBaseName(command);
    job->WorkDir = directory;
    job->Command = command;
    job->ClientHost = session.ClientHost;
    job->ClientPort = session.ClientPort;
    job->Status = Running;
    job->Scheduled = job->Started = platform::SecondsSince1970();
    job->Pid = pid;
    ++state.RunningCount;
  }
  job->SuccessFlag = false;
  state.Jobs.Changed(*job);
  state.Jobs.Attach(pid, job->Handle);
  session.AttachedJob = job->Handle;
  return {*job, isStranger};
}

std::string CommandBaseName(const std::string& command) {
  static constexpr const char* kWhiteSpace = " \n\r\t\f\v";
  std::string word;
  bool quoted = false;
  std::size_t i = command.find_first_not_of(kWhiteSpace);
  const std::size_t end = command.find_last_not_of(kWhiteSpace) + 1;
  for (; i < end; ++i) {
    const char c = command[i];
    if (c == '"') quoted = !quoted;
    if (!quoted && std::string_view(kWhiteSpace).find(c) != std::string_view::npos) break;
    word += c;
  }
  const std::size_t separator = word.find_last_of("/\\");
  if (separator != std::string::npos) word.erase(0, separator + 1);
  return word.substr(0, word.find('.'));
}

}  // namespace tlm
