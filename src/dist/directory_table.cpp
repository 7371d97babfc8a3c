#include "dist/directory_table.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <vector>

#include "dist/server_pool.h"
#include "exec/retirement.h"
#include "exec/temp_directories.h"
#include "platform/file_system.h"
#include "platform/host.h"
#include "platform/thread.h"
#include "store/confinement.h"
#include "store/directory_records.h"
#include "store/trace.h"
#include "util/mdirectory.h"

namespace tlm {

namespace {

bool IsMapped(const Session& session, const DirectoryRecord& record) {
  const auto entry = session.DirectoryMap.find(record.Key);
  return session.ClientHost == record.ClientHost && entry != session.DirectoryMap.end() &&
         entry->second == record.Directory;
}

// A directory without a file yet is not taken from a client that is just asking for it, nor from another one that is
// about to send its files.
bool IsAwaited(const JobManagerState& state, const Session& session, const std::string* wantedKey,
               const DirectoryRecord& record) REQUIRES(state.StateLock) {
  const bool isWanted = wantedKey != nullptr && record.Key == *wantedKey && record.ClientHost == session.ClientHost;
  const auto hasMapped = [&](const Session* other) { return other != &session && IsMapped(*other, record); };
  if (!isWanted && std::none_of(state.SessionList.begin(), state.SessionList.end(), hasMapped)) return false;
  return MFile(record.Directory).IsDirectory() && MDirectory(record.Directory).HasNoEntries();
}

void SweepDirectories(JobManagerState& state, Session& session, const std::string* wantedKey)
    REQUIRES(state.StateLock) {
  std::optional<std::vector<DirectoryRecord>> records = OwnDirectoryRecords(state);
  if (!records) return;
  std::vector<DirectoryRecord> living;
  for (DirectoryRecord& record : *records) {
    const bool isKept = state.Jobs.IsInUse(record.Directory) || IsAwaited(state, session, wantedKey, record);
    if (!isKept && RemoveExpiredDirectory(state, record.Directory)) continue;
    if (record.ClientHost == session.ClientHost) session.DirectoryMap[record.Key] = record.Directory;
    living.push_back(std::move(record));
  }
  ReplaceDirectoryRecords(DirectoryRecordsPath(state.TempRoot), living);
}

// Stands in for a directory that cannot be made now. No other has this name, also if none of them is ever made.
std::string UnusedName(const JobManagerState& state) REQUIRES(state.StateLock) {
  static std::uint64_t number = 0;
  std::ostringstream name;
  name << state.TempRoot << platform::kPathSeparator << kServerDirectoryPrefix << platform::SecondsSince1970() << '-'
       << platform::ProcessId() << '-' << ++number;
  return name.str();
}

std::string NewDirectory(const JobManagerState& state, const Session& session, const std::string& key)
    REQUIRES(state.StateLock) {
  const std::optional<std::string> made = platform::MakeUniqueDirectory(state.TempRoot, kServerDirectoryPrefix);
  if (!made) return UnusedName(state);
  AppendDirectoryRecord(DirectoryRecordsPath(state.TempRoot), {session.ClientHost, key, *made});
  return *made;
}

}  // namespace

void ReloadDirectoryTable(JobManagerState& state, Session& session, const std::string* wantedKey) {
  SweepJobs(state);
  EnsureTempRoot(state);
  SweepDirectories(state, session, wantedKey);
  ReadServerPool(state);
}

std::string MapClientDirectory(JobManagerState& state, Session& session, const std::string& key) {
  if (!session.DirectoryMap.contains(key)) ReloadDirectoryTable(state, session, &key);
  const auto [entry, isNew] = session.DirectoryMap.try_emplace(key);
  std::string& directory = entry->second;
  if (isNew) directory = NewDirectory(state, session, key);
  MDirectory(directory).Create();
  Trace(state, "Using %s for %s on %s\n", directory.c_str(), key.c_str(), session.ClientHost.c_str());
  return directory;
}

}  // namespace tlm
