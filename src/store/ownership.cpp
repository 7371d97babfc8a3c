#include "store/ownership.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "platform/file.h"
#include "platform/file_system.h"
#include "store/trace.h"

namespace tlm {

namespace {

using platform::File;

constexpr std::size_t kPiece = 4096;

bool Owns(const Session& session, const Job& job) {
  return job.ClientHost == session.ClientHost && job.ClientPort == session.ClientPort;
}

void ForgetWhatWasSent(Job& job) {
  job.SentFileSize.clear();
  job.SentFileDate.clear();
}

}  // namespace

Job* TakeOwnership(JobManagerState& state, const Session& session, JobRef ref) {
  Job* job = state.Jobs.Find(ref);
  if (!job || job->ClientHost != session.ClientHost) return nullptr;
  if (job->ClientPort == session.ClientPort && job->ClientPort != 0) return job;
  if (job->ClientPort != 0) {
    if (state.LastRefusedJob != ref) {
      Trace(state, "%s owned by %u not %d\n", job->ResultStem.c_str(), job->ClientPort, session.ClientPort);
    }
    state.LastRefusedJob = ref;
    return nullptr;
  }
  Trace(state, "Ownership of %s taken by port %d\n", job->ResultStem.c_str(), session.ClientPort);
  if ((job->ResultFlags & kResultsBeingSent) != 0) {  // a transfer to the former owner was cut off
    ForgetWhatWasSent(*job);
    job->ResultFlags = (job->ResultFlags & ~kResultsBeingSent) | kResultsAvailable;
  }
  job->ClientPort = session.ClientPort;
  state.Jobs.Changed(*job);
  return job;
}

void DisownJobs(JobManagerState& state, const Session& session) {
  for (JobRef ref : state.Jobs.OwnedThrough(session.ClientPort)) {
    Job& job = *state.Jobs.Find(ref);
    Trace(state, "Disowning %s\n", job.ResultStem.c_str());
    job.ClientPort = 0;
    state.Jobs.Changed(job);
    ForgetWhatWasSent(job);
  }
}

void StepOutput(Session& session, Job& job, std::uint64_t outputSize) {
  if (!session.Listening || !Owns(session, job)) return;
  std::uint32_t& offset = session.WatchOffsets[job.Handle];
  const auto seen = static_cast<std::uint32_t>(std::min<std::uint64_t>(outputSize, UINT32_MAX));
  if (seen <= offset) return;
  offset = seen;
  ++job.UpdateTimestamp;
}

std::uint64_t OutputSize(const Job& job) {
  platform::FileStatus status;
  const bool isFile = platform::GetFileStatus(job.OutFile, status) == 0 && status.IsRegular;
  return isFile ? status.Size : 0;
}

std::string ReadOutputFrom(const Job& job, std::uint32_t offset, std::size_t limit) {
  std::string text;
  std::optional<File> file = File::Open(job.OutFile, File::Mode::Read);
  if (!file || !file->Seek(offset)) return text;
  std::array<char, kPiece> piece;
  while (const std::size_t count = file->Read(piece.data(), std::min(piece.size(), limit - text.size())).value_or(0)) {
    text.append(piece.data(), count);
  }
  return text;
}

}  // namespace tlm
