#include "dist/remote_jobs.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "dist/distributor.h"
#include "dist/server_pool.h"
#include "exec/retirement.h"
#include "exec/run_job.h"
#include "exec/worker.h"
#include "jm/result_manifest.h"
#include "platform/file.h"
#include "platform/file_system.h"
#include "store/trace.h"
#include "util/mfile.h"

namespace tlm {

namespace {

using platform::File;

constexpr int kMostFailures = 5;
constexpr int kNoticesInARow = 10;
constexpr int kLastFetches = 3;

// The job while it is at the peer, or on its way there; null once it is not any more.
Job* FindAt(JobManagerState& state, const Peer& peer, JobRef ref) REQUIRES(state.StateLock) {
  Job* job = state.Jobs.Find(ref);
  return job && job->RemoteServer.get() == &peer ? job : nullptr;
}

void LeavePeer(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  job.RemoteJob = 0;
  job.RemoteServer.reset();
  std::erase(state.RemoteJobs, job.Handle);
}

// -- placing

Submission SubmissionOf(const Job& job) {
  Submission submission;
  submission.AnalysisID = job.AnalysisID;
  submission.WorkDir = job.TempDir;  // so that the results come right into the local directory
  submission.Command = job.Command;
  submission.InputFile = job.InputFile;
  submission.ResultStem = job.ResultStem;
  submission.InputStem = job.InputStem;
  submission.ClientNote = job.ClientNote;
  submission.TaskKey = job.TaskKey;
  submission.ProcessID = job.ProcessID;
  submission.RunClass = kRunAtOnce;
  submission.CompleteOnFailure = job.CompleteOnFailure;
  submission.ReservedFlag = job.ReservedFlag;
  return submission;
}

std::uint64_t SubmitTo(QorJMClient& client, const Submission& submission) {
  std::string directory;
  client.MapClientDirectory(submission.WorkDir, directory);
  MFile source(submission.InputFile);
  MFile destination = source;
  source.SetDirectory(submission.WorkDir);
  destination.SetDirectory(directory);
  client.PutFiles({{{destination.Path(), source.Path()}}});
  return client.SubmitJob(submission);
}

// True if the job is the peer's from now on.
bool NotePlacement(JobManagerState& state, const Peer& peer, JobRef ref, std::uint64_t remote) {
  const MAutoLock lock(state.StateLock);
  Job* job = FindAt(state, peer, ref);
  if (!job || job->Status != Queued) {
    if (job) job->RemoteServer.reset();
    return false;
  }
  job->RemoteJob = remote;
  state.RemoteJobs.push_back(ref);
  return true;
}

void NoteFailure(JobManagerState& state, const Peer& peer, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  Trace(state, "-NO DIST SERVERS\n");
  if (Job* job = FindAt(state, peer, ref)) job->RemoteServer.reset();
}

// -- following

struct RemoteView {
  std::uint64_t Handle = 0;      // on the peer
  bool MayHaveBeenLost = false;  // it ran, and nothing here hangs on it
  bool SomebodyListens = false;
};

std::optional<RemoteView> LookAt(JobManagerState& state, const Peer& peer, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  const Job* job = FindAt(state, peer, ref);
  if (!job) {
    std::erase(state.RemoteJobs, ref);
    return std::nullopt;
  }
  const bool isAlone = job->Predecessor == 0 && job->CreatorJob == 0;
  return RemoteView{job->RemoteJob, job->Status == Running && isAlone, state.ListeningSessions != 0};
}

// The peer's word on the job; empty if it has none of this handle. A Status of 0 is none: others on the peer report so
// much that no answer told it.
std::optional<Task> AskState(QorJMClient& client, std::uint64_t handle) {
  std::optional<Task> noticed;
  for (int i = 0; i < kNoticesInARow; ++i) {
    Task task;
    if (!client.GetJob(handle, task)) {
      // A job that needs nothing more leaves the peer by being read for the last time.
      if (noticed) noticed->Status = Finished;
      return noticed;
    }
    if (task.Status != kProgressNotice) return task;
    noticed = std::move(task);
  }
  noticed->Status = 0;
  return noticed;
}

bool IsUp(QorJMClient& client) { return client.Ping() != ORpcClient::State::Closed; }

bool IsFinal(std::uint32_t status) { return status == LaunchFailed || status == Finished || status == Aborted; }

// What the peer's job has written since the local copy was last brought up to date.
void FetchRemoteOutput(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref,
                       std::uint64_t handle) {
  std::string path;
  {
    const MAutoLock lock(state.StateLock);
    const Job* job = FindAt(state, peer, ref);
    if (!job) return;
    path = job->OutFile;
  }
  std::string text;
  client.ReadOutput(handle, MFile(path).Size(), text);
  if (text.empty()) return;
  const MAutoLock lock(state.StateLock);
  Job* job = FindAt(state, peer, ref);
  if (!job) return;
  if (std::optional<File> file = File::Open(path, File::Mode::Append)) static_cast<void>(file->Write(text));
  ForwardOutput(state, *job);
}

// True if nothing is missing.
bool FetchResultsOnce(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref, std::uint64_t handle) {
  FileTransferList files;
  if (!client.RequestResults(handle, files)) return true;
  if (!CheckReceivedResults(files, false).empty()) {
    client.ResultsNotSent(handle);
    return false;
  }
  {
    const MAutoLock lock(state.StateLock);
    if (Job* job = FindAt(state, peer, ref)) {
      job->ResultFlags |= kResultsAvailable;
      state.Jobs.Changed(*job);
    }
  }
  client.ResultsReceived(handle);
  return true;
}

// Nobody asks again for the results of a job that has ended.
void FetchResults(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref, std::uint64_t handle,
                  bool isLast) {
  for (int i = isLast ? kLastFetches : 1; i > 0 && !FetchResultsOnce(state, peer, client, ref, handle); --i) {
  }
}

void Mirror(JobManagerState& state, const Peer& peer, JobRef ref, const Task& task) {
  const MAutoLock lock(state.StateLock);
  Job* job = FindAt(state, peer, ref);
  if (!job) return;
  if (task.Status != 0 && task.Status != job->Status) {
    Trace(state, "Status of %s now %u\n", job->ResultStem.c_str(), task.Status);
    job->Status = task.Status == Removed ? std::uint32_t{Finished} : task.Status;
    if (IsFinal(job->Status)) LeavePeer(state, *job);
    state.Jobs.Changed(*job);
    NotifyJobChange(state, *job, job->Status);
  }
  job->Progress = task.Progress;
  job->TaskType = task.TaskType;
  job->TaskLevel = task.TaskLevel;
  job->ReservedTime = task.ReservedTime;
  job->Elapsed = task.Elapsed;
  NotifyJobChange(state, *job, job->Status);
  if (job->RemoteServer) return;
  if (job->Status != Finished) FailDependants(state, *job);
  WakeWorkers(state);
}

enum class Contact { Good, Failed, Lost };

Contact PollJob(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref) {
  const std::optional<RemoteView> view = LookAt(state, peer, ref);
  if (!view) return Contact::Good;
  std::optional<Task> task;
  if (IsUp(client)) task = AskState(client, view->Handle);
  const bool isUp = IsUp(client);
  if (task && !isUp) return Contact::Lost;
  if (!task) {
    if (!view->MayHaveBeenLost) return Contact::Lost;
    task.emplace();
    task->Status = Aborted;
    if (!IsUp(client)) return Contact::Failed;
  }
  if (view->SomebodyListens) FetchRemoteOutput(state, peer, client, ref, view->Handle);
  if ((task->ResultFlags & kResultsAvailable) != 0) {
    FetchResults(state, peer, client, ref, view->Handle, IsFinal(task->Status));
  }
  Mirror(state, peer, ref, *task);
  return Contact::Good;
}

// -- giving up

void TakeBack(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  LeavePeer(state, job);
  job.Failures = 0;
  if (job.Status == Aborted) return;  // a client has removed it
  job.Status = Queued;
  job.ResultFlags = 0;
  state.Jobs.Changed(job);
  PushForDistribution(state, job.Handle);
  NotifyJobChange(state, job, Queued);
}

void GiveUp(JobManagerState& state, const std::shared_ptr<Peer>& peer) REQUIRES(state.StateLock) {
  const std::vector<JobRef> all = state.RemoteJobs;
  for (JobRef ref : all) {
    if (Job* job = FindAt(state, *peer, ref)) TakeBack(state, *job);
  }
  ReleasePeerClient(state, peer);
}

// True if the peer was given up.
bool CountFailure(JobManagerState& state, const std::shared_ptr<Peer>& peer, JobRef ref, Contact contact) {
  const MAutoLock lock(state.StateLock);
  Job* job = FindAt(state, *peer, ref);
  if (!job) return false;
  if (contact == Contact::Lost) job->Failures = kMostFailures - 1;
  if (++job->Failures != kMostFailures) return false;
  GiveUp(state, peer);
  return true;
}

void PollPeer(JobManagerState& state, const std::shared_ptr<Peer>& peer, QorJMClient& client,
              const std::vector<JobRef>& refs) {
  for (JobRef ref : refs) {
    Contact contact = Contact::Failed;
    try {
      contact = PollJob(state, *peer, client, ref);
    } catch (...) {  // Any broken call counts.
    }
    if (contact != Contact::Good && CountFailure(state, peer, ref, contact)) return;
  }
}

using JobsByPeer = std::vector<std::pair<std::shared_ptr<Peer>, std::vector<JobRef>>>;

JobsByPeer RemoteJobsByPeer(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  std::erase_if(state.RemoteJobs, [&state](JobRef ref) REQUIRES(state.StateLock) { return !state.Jobs.Find(ref); });
  JobsByPeer peers;
  for (JobRef ref : state.RemoteJobs) {
    const std::shared_ptr<Peer>& peer = state.Jobs.Find(ref)->RemoteServer;
    auto entry = std::find_if(peers.begin(), peers.end(), [&](const auto& known) { return known.first == peer; });
    if (entry == peers.end()) entry = peers.insert(peers.end(), {peer, {}});
    entry->second.push_back(ref);
  }
  return peers;
}

}  // namespace

Placement PlaceOnPeer(JobManagerState& state, const std::shared_ptr<Peer>& peer, JobRef ref) {
  Submission submission;
  {
    const MAutoLock lock(state.StateLock);
    Job* job = state.Jobs.Find(ref);
    if (!job || job->Status != Queued) return Placement::Placed;
    job->RemoteServer = peer;
    submission = SubmissionOf(*job);
  }
  enum class Stage { UnderWay, LeftToPeer, Placed, Failed };
  const auto stage = std::make_shared<std::atomic<Stage>>(Stage::UnderWay);
  peer->Run(
      [&state, peer, ref, submission, stage](QorJMClient& client) {
        try {
          const std::uint64_t remote = SubmitTo(client, submission);
          if (!NotePlacement(state, *peer, ref, remote)) {
            client.RemoveJob(remote);
            client.ReleaseJob(remote);
          }
          *stage = Stage::Placed;
        } catch (...) {  // What reached the peer stays there.
          NoteFailure(state, *peer, ref);
          if (stage->exchange(Stage::Failed) == Stage::LeftToPeer) PushForDistribution(state, ref);
        }
      },
      kPeerPatience);
  Stage expected = Stage::UnderWay;
  if (stage->compare_exchange_strong(expected, Stage::LeftToPeer)) return Placement::UnderWay;
  return expected == Stage::Placed ? Placement::Placed : Placement::Failed;
}

void PollRemoteJobs(JobManagerState& state) {
  for (const auto& [peer, refs] : RemoteJobsByPeer(state)) {
    if (!peer->IsIdle()) continue;
    peer->Run([&state, self = peer, list = refs](QorJMClient& client) { PollPeer(state, self, client, list); },
              kPeerPatience);
  }
}

}  // namespace tlm
