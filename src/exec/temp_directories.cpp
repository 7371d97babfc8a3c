#include "exec/temp_directories.h"

#include "libtsenv/product_environment.h"
#include "libtsenv/runtime_identity.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/thread.h"
#include "store/confinement.h"
#include "store/directory_records.h"
#include "util/mdirectory.h"

namespace tlm {

std::string DeriveTempRoot() {
  std::string root = ProductValue("PRODUCT_TMP").value_or("");
  if (root.empty()) root = platform::GetVariable("TMPDIR").value_or("");
  if (root.empty()) {
    root = platform::GetVariable("TMP").value_or("");
    if (!root.empty()) return root;
  }
  if (root.empty()) root = platform::GetVariable("TEMP").value_or("");
  platform::SetVariable("TMP", "");
  return root.empty() ? platform::TemporaryDirectory() : root;
}

void EnsureTempRoot(const JobManagerState& state) {
  if (MFile(state.TempRoot).IsDirectory()) return;
  const MFile root(state.TempRoot.substr(0, state.TempRoot.find_last_not_of(platform::kPathSeparator) + 1));
  MDirectory(root.DirectoryPart()).Create();
  platform::MakeDirectory(root.Path(), true);
}

bool RemoveExpiredDirectory(const JobManagerState& state, const std::string& directory) {
  if (platform::IsLink(directory)) return false;
  const std::int64_t limit = platform::SecondsSince1970() - state.TempExpiry;
  MDirectory entries(directory);
  entries.Open();
  for (MFile file; entries.Next(file);) {
    if (file.ModTime() < limit) file.Remove();
  }
  return platform::RemoveEmptyDirectory(directory);
}

void PurgeTempRoot(JobManagerState& state) {
  state.TempRoot = DeriveTempRoot();
  state.TempExpiry = 0;
  if (const auto records = OwnDirectoryRecords(state)) {
    for (const DirectoryRecord& record : *records) RemoveExpiredDirectory(state, record.Directory);
    RemoveDirectoryRecords(DirectoryRecordsPath(state.TempRoot));
    platform::RemoveFile(state.TempRoot + Identity().RUNTIME_JM_DISTPOOL_STATUS_FILE);
  }
}

bool SetTempRoot(JobManagerState& state, const std::string& directory, std::uint32_t expiry) {
  if (directory != state.TempRoot) {
    const bool usable = MFile(directory).IsDirectory() && platform::IsWritable(directory);
    if (!usable || state.RunningCount != 0) return false;
    PurgeTempRoot(state);
    for (Session* session : state.SessionList) session->DirectoryMap.clear();
    state.TempRoot = directory;
  }
  state.TempExpiry = expiry;
  return true;
}

}  // namespace tlm
