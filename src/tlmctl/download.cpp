#include "tlmctl/download.h"

#include <iostream>

#include "jm/result_manifest.h"
#include "tlmctl/console.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/transfer_progress.h"
#include "util/mfile.h"

namespace tlm::ctl {

namespace {

constexpr int kAttempts = 3;

class Download : public TransferProgress {
 public:
  Download(const Settings& settings, std::string directory)
      : TransferProgress(settings, "fetching", 0), directory_(std::move(directory)) {}
  bool Allows(const FileTransferItem& item) override {
    if (MayReceive(item.Destination, directory_)) return true;
    refused_ = item.Destination;
    return false;
  }
  const std::string& Refused() const { return refused_; }

 private:
  const std::string directory_;
  std::string refused_;
};

// Files that could not be written here, and those that came short.
StringList Incomplete(const FileTransferList& received) {
  StringList names = CheckReceivedResults(received, true);
  for (const FileTransferItem& item : received.Items) {
    if (!item.Stored) names.push_back(item.Destination);
  }
  return names;
}

void Collect(const FileTransferList& received, std::vector<ReceivedFile>& files) {
  for (const FileTransferItem& item : received.Items) {
    if (item.Stored) files.push_back({item.Destination, MFile(item.Destination).Size()});
  }
}

}  // namespace

bool MayReceive(const std::string& path, const std::string& directory) {
  if (!path.starts_with(directory)) return false;
  const std::string name = path.substr(directory.size());
  return !name.empty() && name.front() != '.' && name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
}

std::vector<ReceivedFile> FetchResults(QorJMClient& client, const Settings& settings, std::uint64_t handle,
                                       const std::string& directory) {
  std::vector<ReceivedFile> files;
  StringList incomplete;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Download download(settings, directory);
    FileTransferList received;
    received.Watcher = &download;
    if (!client.RequestResults(handle, received)) return files;
    if (!download.Refused().empty()) {
      throw Failure{kRefused, "the server sent a file for " + download.Refused() + ", which is not one of " + directory,
                    "nothing was written there; do not trust this server"};
    }
    Collect(received, files);
    incomplete = Incomplete(received);
    if (incomplete.empty()) {
      client.ResultsReceived(handle);
      AwaitArrival(client);
      return files;
    }
    client.ResultsIncomplete(handle, incomplete);
  }
  AwaitArrival(client);
  throw Failure{kRefused, incomplete.front() + " and perhaps others did not arrive whole",
                "is the disk here full? The server keeps them: try 'tlmctl results' again"};
}

Json ToJson(const std::vector<ReceivedFile>& files) {
  Json list = Json::array();
  for (const ReceivedFile& file : files) list.push_back({{"path", file.Path}, {"size", file.Size}});
  return list;
}

void PrintReceived(const Settings& settings, std::uint64_t handle, const std::vector<ReceivedFile>& files) {
  if (settings.Json) return PrintJson({{"handle", handle}, {"files", ToJson(files)}});
  for (const ReceivedFile& file : files) {
    std::cout << (settings.Quiet ? "" : std::to_string(file.Size) + '\t') << file.Path << '\n';
  }
  std::cout.flush();
}

}  // namespace tlm::ctl
