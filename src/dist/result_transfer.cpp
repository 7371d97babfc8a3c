#include "dist/result_transfer.h"

#include <optional>
#include <string>
#include <vector>

#include "exec/result_files.h"
#include "exec/retirement.h"
#include "jm/result_manifest.h"
#include "platform/file.h"
#include "store/confinement.h"
#include "store/ownership.h"
#include "store/trace.h"
#include "util/mfile.h"

namespace tlm {

namespace {

void SetResultFlags(JobManagerState& state, Job& job, std::uint32_t flags) REQUIRES(state.StateLock) {
  job.ResultFlags = flags;
  state.Jobs.Changed(job);
}

void OfferAgain(JobManagerState& state, Job& job) REQUIRES(state.StateLock) {
  SetResultFlags(state, job, (job.ResultFlags & ~kResultsBeingSent) | kResultsAvailable);
  Trace(state, "Results Not Sent Correctly\n");
}

// The client keeps a file that has not changed since it was last sent.
void AddResultFile(JobManagerState& state, Job& job, const MFile& file, FileTransferList& files)
    REQUIRES(state.StateLock) {
  std::uint32_t& sentSize = job.SentFileSize[file.Name()];
  std::int64_t& sentDate = job.SentFileDate[file.Name()];
  const std::uint32_t size = file.Size();
  const std::int64_t date = file.ModTime();
  if (size == sentSize && date == sentDate) return;
  MFile destination = file;
  destination.SetDirectory(job.WorkDir);
  if (destination.Path().size() > kMaxStringLength) return;  // no client could read its name
  files.Items.push_back({destination.Path(), file.Path()});
  sentSize = size;
  sentDate = date;
  Trace(state, "\tAdded file to output stream \n\t\t%s \n\t\tSize : %d bytes\n", destination.Path().c_str(),
        static_cast<int>(size));
}

void WriteManifest(JobManagerState& state, const Job& job, const std::vector<MFile>& results)
    REQUIRES(state.StateLock) {
  const auto directory = ClientDirectory::Open(state, job.TempDir);
  if (!directory) return;
  std::string text;
  for (const MFile& file : results) {
    text += ManifestLine(file, job.SentFileSize.at(file.Name()), job.SentFileDate.at(file.Name()));
  }
  const MFile manifest = ResultManifest(job, directory->Path());
  MFile until = manifest;
  until.SetName("~" + manifest.Name());  // another stem: it is no result
  platform::ReplaceWholeFile(manifest.Path(), until.Path(), text);
}

void AddResults(JobManagerState& state, Job& job, const std::vector<MFile>& results, FileTransferList& files)
    REQUIRES(state.StateLock) {
  for (const MFile& file : results) AddResultFile(state, job, file, files);
  if (results.empty()) return;
  WriteManifest(state, job, results);
  AddResultFile(state, job, ResultManifest(job, job.TempDir), files);
}

}  // namespace

bool RequestResults(JobManagerState& state, const Session& session, JobRef ref, FileTransferList& files) {
  if (const Job* job = state.Jobs.Find(ref)) {
    Trace(state, "Request Results : Available Status %u\n", job->ResultFlags);
  } else {
    Trace(state, "Request Results : No valid job\n");
  }
  Job* job = TakeOwnership(state, session, ref);
  std::optional<std::vector<MFile>> results;
  if (job && (job->ResultFlags & (kResultsAvailable | kResultsBeingSent)) == kResultsAvailable) {
    results = ResultFileScan(*job, job->TempDir);
  }
  if (!results) {
    Trace(state, "\t : None Available\n");
    return false;
  }
  try {
    AddResults(state, *job, *results, files);
  } catch (...) {  // What stands in the list is sent; the manifest tells what is not.
  }
  SetResultFlags(state, *job, (job->ResultFlags & ~kResultsAvailable) | kResultsBeingSent);
  Trace(state, " : Sending\n");
  return true;
}

bool ResultsNotSent(JobManagerState& state, const Session& session, JobRef ref) {
  Job* job = TakeOwnership(state, session, ref);
  if (!job) return false;
  job->SentFileSize.clear();
  job->SentFileDate.clear();
  OfferAgain(state, *job);
  return true;
}

void ResultsIncomplete(JobManagerState& state, const Session& session, JobRef ref, const StringList& names) {
  Job* job = TakeOwnership(state, session, ref);
  if (!job) return;
  for (const std::string& path : names) {
    const std::string name = MFile(path).Name();
    job->SentFileSize[name] = 0;
    job->SentFileDate[name] = 0;
  }
  if (!names.empty()) return OfferAgain(state, *job);
  SetResultFlags(state, *job, job->ResultFlags & ~kResultsBeingSent);
  Trace(state, "Results Sent\n");
}

void ResultsReceived(JobManagerState& state, const Session& session, JobRef ref) {
  Job* job = TakeOwnership(state, session, ref);
  if (!job) return;
  SetResultFlags(state, *job, job->ResultFlags & ~kResultsBeingSent);
  if (job->Status == Finished && (job->ResultFlags & kResultsAvailable) == 0) {
    NotifyJobChange(state, *job, Finished);
    SweepJobs(state);
  }
  Trace(state, "Client successfully received results\n");
}

}  // namespace tlm
