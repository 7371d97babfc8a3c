// The operations on files and directories.
#include "dist/client_files.h"
#include "dist/directory_table.h"
#include "dist/result_transfer.h"
#include "exec/temp_directories.h"
#include "server/qorjmserver.h"
#include "store/confinement.h"
#include "util/mfile.h"

namespace tlm {

namespace {

bool AllArrived(const FileTransferList& files) {
  for (const FileTransferItem& item : files.Items) {
    if (!item.Stored || !MFile(item.Path).Exists()) return false;
  }
  return true;
}

}  // namespace

bool QorJMServer::PutFiles(const FileTransferList& files) { return AllArrived(files); }

bool QorJMServer::UpdateClientFiles(const StringList& deletions, const FileTransferList& files) {
  bool deleted = true;
  for (const std::string& path : deletions) {
    const std::optional<std::string> reached = receiver_.Reach(path);
    if (!reached) {
      deleted = false;
      continue;
    }
    MFile file(*reached);
    if (file.Exists() && !file.Remove()) deleted = false;
  }
  return deleted && AllArrived(files);
}

void QorJMServer::GetTempRoot(Out<std::string> directory, Out<std::uint32_t> expiry) {
  const MAutoLock lock(state_.StateLock);
  directory.Ref = state_.TempRoot;
  expiry.Ref = static_cast<std::uint32_t>(state_.TempExpiry);
}

bool QorJMServer::SetTempRoot(const std::string& directory, std::uint32_t expiry) {
  if (!MayAdminister("SetTempRoot")) return false;
  const MAutoLock lock(state_.StateLock);
  if (!MayBecomeTempRoot(state_, directory)) return false;
  return tlm::SetTempRoot(state_, directory, expiry);
}

bool QorJMServer::MapClientDirectory(const std::string& clientDirectory, std::string& serverDirectory) {
  const MAutoLock lock(state_.StateLock);
  serverDirectory = tlm::MapClientDirectory(state_, session_, clientDirectory);
  return true;
}

bool QorJMServer::ClientFileExists(const std::string& path) {
  const MAutoLock lock(state_.StateLock);
  return tlm::ClientFileExists(state_, session_, path);
}

bool QorJMServer::ClientFileMatches(const std::string& path, std::uint32_t size, std::uint32_t) {
  const MAutoLock lock(state_.StateLock);
  return tlm::ClientFileMatches(state_, session_, path, size);
}

bool QorJMServer::CheckClientFiles(const StringList& files, Out<StringList> missing) {
  const MAutoLock lock(state_.StateLock);
  missing.Ref = MissingClientFiles(state_, session_, files);
  return missing.Ref.empty();
}

bool QorJMServer::RequestResults(std::uint64_t handle, FileTransferList& files) {
  const MAutoLock lock(state_.StateLock);
  return tlm::RequestResults(state_, session_, handle, files);
}

bool QorJMServer::ResultsNotSent(std::uint64_t handle) {
  const MAutoLock lock(state_.StateLock);
  return tlm::ResultsNotSent(state_, session_, handle);
}

void QorJMServer::ResultsIncomplete(std::uint64_t handle, const StringList& names) {
  const MAutoLock lock(state_.StateLock);
  tlm::ResultsIncomplete(state_, session_, handle, names);
}

void QorJMServer::ResultsReceived(std::uint64_t handle) {
  const MAutoLock lock(state_.StateLock);
  tlm::ResultsReceived(state_, session_, handle);
}

}  // namespace tlm
