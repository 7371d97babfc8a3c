#include "dist/remote_jobs.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
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
#include "store/submission.h"
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
  job.ConfirmedToPeer = false;
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
  std::uint64_t Handle = 0;  // on the peer
  bool SomebodyListens = false;
  // What it has come to if the peer does not know it any more; 0 if the peer is not to be believed then.
  std::uint32_t StatusIfUnknown = 0;
};

// A job leaves its peer by itself only once it has finished and all its results are here.
std::uint32_t StatusIfUnknown(const Job& job) {
  if (job.ConfirmedToPeer) return Finished;
  const bool isAlone = job.Predecessor == 0 && job.CreatorJob == 0;
  return job.Status == Running && (isAlone || job.Killed != 0) ? std::uint32_t{Aborted} : 0;
}

std::optional<RemoteView> LookAt(JobManagerState& state, const Peer& peer, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  const Job* job = FindAt(state, peer, ref);
  if (!job) return std::nullopt;
  return RemoteView{job->RemoteJob, state.ListeningSessions != 0, StatusIfUnknown(*job)};
}

void SetConfirmed(JobManagerState& state, const Peer& peer, JobRef ref, bool confirmed) {
  const MAutoLock lock(state.StateLock);
  if (Job* job = FindAt(state, peer, ref)) job->ConfirmedToPeer = confirmed;
}

// The peer's word on the job; empty if it has none of this handle. A Status of 0 is none: others on the peer report so
// much that no answer told it.
std::optional<Task> AskState(QorJMClient& client, std::uint64_t handle) {
  Task task;
  for (int i = 0; i < kNoticesInARow; ++i) {
    task = Task();
    if (!client.GetJob(handle, task)) return std::nullopt;
    if (task.Status != kProgressNotice) return task;
  }
  task.Status = 0;
  return task;
}

bool IsUp(QorJMClient& client) { return client.Ping() != ORpcClient::State::Closed; }

bool IsFinal(std::uint32_t status) {
  return status == LaunchFailed || status == Finished || status == Aborted || status == Removed;
}

// What the peer's job has written since the local copy was last brought up to date, as much as one answer holds. True
// if there may be more.
bool FetchRemoteOutput(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref,
                       std::uint64_t handle) {
  std::string path;
  {
    const MAutoLock lock(state.StateLock);
    const Job* job = FindAt(state, peer, ref);
    if (!job) return false;
    path = job->OutFile;
  }
  std::string text;
  client.ReadOutput(handle, MFile(path).Size(), text);
  if (text.empty()) return false;
  const MAutoLock lock(state.StateLock);
  Job* job = FindAt(state, peer, ref);
  if (!job) return false;
  const auto directory = ClientDirectory::Open(state, job->TempDir);
  if (!directory) return false;
  std::optional<File> file = File::Open(OutFileIn(*directory, *job), File::Mode::Append, directory->Links());
  const bool written = file && file->Write(text);
  ForwardOutput(state, *job);
  return written && text.size() == kMaxStringLength;
}

// A peer that is confined as clients are writes to the job's directory alone.
class ResultsReceiver : public FileTransferWatcher {
 public:
  explicit ResultsReceiver(std::optional<ClientDirectory> directory) : directory_(std::move(directory)) {}
  std::optional<std::string> PathFor(const FileTransferItem& item) override {
    const std::string name = MFile(item.Destination).Name();
    if (!directory_ || name.find('/') != std::string::npos || name == "..") return std::nullopt;
    return directory_->Path() + '/' + name;
  }

 private:
  const std::optional<ClientDirectory> directory_;
};

std::unique_ptr<ResultsReceiver> ReceiverFor(JobManagerState& state, const Peer& peer, JobRef ref) {
  const MAutoLock lock(state.StateLock);
  const Job* job = FindAt(state, peer, ref);
  if (!job || !state.Restrictions.Confined) return nullptr;
  return std::make_unique<ResultsReceiver>(ClientDirectory::Open(state, job->TempDir));
}

// True if nothing is missing.
bool FetchResultsOnce(JobManagerState& state, const Peer& peer, QorJMClient& client, JobRef ref, std::uint64_t handle) {
  const std::unique_ptr<ResultsReceiver> receiver = ReceiverFor(state, peer, ref);
  FileTransferList files;
  files.Watcher = receiver.get();
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
  SetConfirmed(state, peer, ref, true);
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
  job->Progress = task.Progress;
  job->TaskType = task.TaskType;
  job->TaskLevel = task.TaskLevel;
  job->ReservedTime = task.ReservedTime;
  job->Elapsed = task.Elapsed;
  if (task.Status != 0 && task.Status != job->Status) {
    Trace(state, "Status of %s now %u\n", job->ResultStem.c_str(), task.Status);
    job->Status = task.Status == Removed ? std::uint32_t{Finished} : task.Status;
    state.Jobs.Changed(*job);
    NotifyJobChange(state, *job, job->Status);
  }
  if (task.Status == 0 || !IsFinal(job->Status)) return NotifyJobChange(state, *job, job->Status);
  LeavePeer(state, *job);
  NotifyJobChange(state, *job, job->Status);
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
  if (task) {
    if (!isUp) return Contact::Lost;
    SetConfirmed(state, peer, ref, false);
  } else {
    if (view->StatusIfUnknown == 0) return Contact::Lost;
    task.emplace();
    task->Status = view->StatusIfUnknown;
    if (!IsUp(client)) return Contact::Failed;
  }
  const bool isLast = IsFinal(task->Status);
  while (view->SomebodyListens && FetchRemoteOutput(state, peer, client, ref, view->Handle) && isLast) {
  }
  if ((task->ResultFlags & kResultsAvailable) != 0) {
    FetchResults(state, peer, client, ref, view->Handle, isLast);
  }
  Mirror(state, peer, ref, *task);
  return Contact::Good;
}

// -- giving up

void TakeBack(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  LeavePeer(state, job);
  job.Failures = 0;
  const bool isGivenUp = job.Status == Aborted || job.Killed != 0;  // removed here, or with what it hangs on
  job.Status = isGivenUp ? Aborted : Queued;
  if (!isGivenUp) job.ResultFlags = 0;
  state.Jobs.Changed(job);
  NotifyJobChange(state, job, job.Status);
  if (isGivenUp) return FailDependants(state, job);
  PushForDistribution(state, job.Handle);
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
  const std::uint64_t number = peer->Post([&state, peer, ref, submission, stage](QorJMClient& client) {
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
  });
  if (number == 0) {
    NoteFailure(state, *peer, ref);
    return Placement::Failed;
  }
  peer->Await(number, kPeerPatience);
  Stage expected = Stage::UnderWay;
  if (stage->compare_exchange_strong(expected, Stage::LeftToPeer)) return Placement::UnderWay;
  return expected == Stage::Placed ? Placement::Placed : Placement::Failed;
}

void PollRemoteJobs(JobManagerState& state) {
  // All at once, so that several slow ones take no longer than one.
  const auto end = std::chrono::steady_clock::now() + kPeerPatience;
  std::vector<std::pair<std::shared_ptr<Peer>, std::uint64_t>> asked;
  for (const auto& [peer, refs] : RemoteJobsByPeer(state)) {
    if (!peer->IsIdle()) continue;
    const std::uint64_t number =
        peer->Post([&state, self = peer, list = refs](QorJMClient& client) { PollPeer(state, self, client, list); });
    if (number == 0) {
      const MAutoLock lock(state.StateLock);
      GiveUp(state, peer);
    }
    asked.emplace_back(peer, number);
  }
  for (const auto& [peer, number] : asked) {
    const auto left = end - std::chrono::steady_clock::now();
    peer->Await(number, std::chrono::duration_cast<std::chrono::milliseconds>(left));
  }
}

}  // namespace tlm
