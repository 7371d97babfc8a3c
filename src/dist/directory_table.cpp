#include "dist/directory_table.h"

#include <optional>
#include <vector>

#include "dist/server_pool.h"
#include "exec/retirement.h"
#include "exec/temp_directories.h"
#include "platform/file_system.h"
#include "store/directory_records.h"
#include "store/trace.h"
#include "util/mdirectory.h"

namespace tlm {

namespace {

constexpr char kPrefix[] = "tq";

bool LivesOn(const JobManagerState& state, const DirectoryRecord& record) REQUIRES(state.StateLock) {
  return state.Jobs.IsInUse(record.Directory) || !RemoveExpiredDirectory(state, record.Directory);
}

void SweepDirectories(JobManagerState& state, Session& session) REQUIRES(state.StateLock) {
  const std::string table = DirectoryRecordsPath(state.TempRoot);
  std::optional<std::vector<DirectoryRecord>> records = ReadDirectoryRecords(table);
  if (!records) return;
  std::vector<DirectoryRecord> living;
  for (DirectoryRecord& record : *records) {
    if (!LivesOn(state, record)) continue;
    if (record.ClientHost == session.ClientHost) session.DirectoryMap[record.Key] = record.Directory;
    living.push_back(std::move(record));
  }
  ReplaceDirectoryRecords(table, living);
}

std::string NewDirectory(const JobManagerState& state) REQUIRES(state.StateLock) {
  if (std::optional<std::string> made = platform::MakeUniqueDirectory(state.TempRoot, kPrefix)) return *made;
  MFile name;
  name.MakeUniqueName(state.TempRoot + platform::kPathSeparator + kPrefix, "");
  return name.Path();
}

}  // namespace

void ReloadDirectoryTable(JobManagerState& state, Session& session) {
  SweepJobs(state);
  EnsureTempRoot(state);
  SweepDirectories(state, session);
  ReadServerPool(state);
}

std::string MapClientDirectory(JobManagerState& state, Session& session, const std::string& key) {
  if (!session.DirectoryMap.contains(key)) ReloadDirectoryTable(state, session);
  const auto [entry, isNew] = session.DirectoryMap.try_emplace(key);
  std::string& directory = entry->second;
  if (isNew) {
    directory = NewDirectory(state);
    AppendDirectoryRecord(DirectoryRecordsPath(state.TempRoot), {session.ClientHost, key, directory});
  }
  MDirectory(directory).Create();
  Trace(state, "Using %s for %s on %s\n", directory.c_str(), key.c_str(), session.ClientHost.c_str());
  return directory;
}

}  // namespace tlm
