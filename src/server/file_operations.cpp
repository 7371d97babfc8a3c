// The operations on files and directories. What belongs to mapped directories, results and peers answers its failure
// value.
#include "server/qorjmserver.h"
#include "util/mfile.h"

namespace tlm {

namespace {

bool AllArrived(const FileTransferList& files) {
  for (const FileTransferItem& item : files.Items) {
    if (!item.Stored || !MFile(item.Destination).Exists()) return false;
  }
  return true;
}

}  // namespace

bool QorJMServer::PutFiles(const FileTransferList& files) { return AllArrived(files); }

bool QorJMServer::UpdateClientFiles(const StringList& deletions, const FileTransferList& files) {
  bool deleted = true;
  for (const std::string& path : deletions) {
    MFile file(path);
    if (file.Exists() && !file.Remove()) deleted = false;
  }
  return deleted && AllArrived(files);
}

void QorJMServer::GetTempRoot(Out<std::string> directory, Out<std::uint32_t> expiry) {
  const MAutoLock lock(state_.StateLock);
  directory.Ref = state_.TempRoot;
  expiry.Ref = static_cast<std::uint32_t>(state_.TempExpiry);
}

bool QorJMServer::SetTempRoot(const std::string&, std::uint32_t) { return false; }

bool QorJMServer::MapClientDirectory(const std::string&, std::string&) { return false; }

bool QorJMServer::ClientFileExists(const std::string&) { return false; }

bool QorJMServer::ClientFileMatches(const std::string&, std::uint32_t, std::uint32_t) { return false; }

bool QorJMServer::CheckClientFiles(const StringList&, Out<StringList>) { return false; }

bool QorJMServer::RequestResults(std::uint64_t, FileTransferList&) { return false; }

bool QorJMServer::ResultsNotSent(std::uint64_t) { return false; }

void QorJMServer::ResultsIncomplete(std::uint64_t, const StringList&) {}

void QorJMServer::ResultsReceived(std::uint64_t) {}

void QorJMServer::GetServerPool(Out<StringList>) {}

void QorJMServer::SetServerPool(const StringList&) {}

}  // namespace tlm
