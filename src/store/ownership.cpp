#include "store/ownership.h"

#include <algorithm>
#include <array>

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

// Reads the file from the offset to its end or to the limit, a piece at a time.
template <class Consumer>
void ReadPieces(File& file, std::uint64_t offset, Consumer consume, std::size_t limit = SIZE_MAX) {
  std::array<char, kPiece> piece;
  if (!file.Seek(offset)) return;
  while (const std::size_t count = file.Read(piece.data(), std::min(piece.size(), limit)).value_or(0)) {
    consume(piece.data(), count);
    limit -= count;
  }
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

void StepOutput(JobManagerState& state, Session& session, JobRef ref, File& outFile) {
  Job* job = state.Jobs.Find(ref);
  if (!job) {
    session.WatchOffsets.erase(ref);
    return;
  }
  if (!session.Listening || !Owns(session, *job)) return;
  std::uint32_t& offset = session.WatchOffsets[ref];
  std::uint32_t found = 0;
  ReadPieces(outFile, offset, [&found](const char*, std::size_t count) { found += static_cast<std::uint32_t>(count); });
  offset += found;
  if (found > 0) ++job->UpdateTimestamp;
}

std::string ReadOutputFrom(const Job& job, std::uint32_t offset, std::size_t limit) {
  std::string text;
  std::optional<File> file = File::Open(job.OutFile, File::Mode::Read);
  const auto append = [&text](const char* data, std::size_t count) { text.append(data, count); };
  if (file) ReadPieces(*file, offset, append, limit);
  return text;
}

}  // namespace tlm
