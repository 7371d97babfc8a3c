#include "tlmctl/download.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <set>

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
  Download(const Settings& settings, const KnownJob& job, const std::string& directory)
      : TransferProgress(settings, "fetching", 0), job_(job), directory_(directory) {}

  std::optional<std::string> PathFor(const FileTransferItem& item) override {
    if (item.Offset != 0) return std::nullopt;  // nobody has asked for a part
    if (MayReceive(item.Destination, directory_)) return item.Destination;
    refused_ = item.Destination;
    return std::nullopt;
  }

  bool Replaces(const FileTransferList& list, const FileTransferItem& item) override {
    if (!manifest_) manifest_ = ReadManifest(list);
    const std::string& path = item.Destination;
    const bool isOlder = std::any_of(manifest_->begin(), manifest_->end(), [&](const ManifestEntry& entry) {
      const std::int64_t submitted = job_.State.Scheduled;
      return entry.Path == path && (entry.Date < submitted || (entry.Date == submitted && IsInput(entry)));
    });
    if (!isOlder || !MFile(path).Exists()) return true;
    kept_.insert(path);
    return false;
  }

  const std::string& Refused() const { return refused_; }
  // Files that are here and have stayed.
  bool HasKept(const std::string& path) const { return kept_.contains(path); }

 private:
  // An input, as it was sent in the second in which the job was submitted perhaps.
  bool IsInput(const ManifestEntry& entry) const {
    return job_.Entry && std::any_of(job_.Entry->Sent.begin(), job_.Entry->Sent.end(), [&](const SentFile& sent) {
             return directory_ + sent.Name == entry.Path && sent.Size == entry.Size;
           });
  }

  const KnownJob& job_;
  const std::string& directory_;
  std::optional<std::vector<ManifestEntry>> manifest_;
  std::set<std::string> kept_;
  std::string refused_;
};

// Files that could not be written here, and those that came short.
StringList Incomplete(const FileTransferList& received, const Download& download) {
  StringList names = CheckReceivedResults(received, true);
  for (const FileTransferItem& item : received.Items) {
    if (!item.Stored) names.push_back(item.Destination);
  }
  std::erase_if(names, [&](const std::string& name) { return download.HasKept(name); });
  return names;
}

using Sizes = std::map<std::string, std::uint64_t>;  // of files, by path

void Collect(const FileTransferList& received, const StringList& incomplete, Sizes& sizes) {
  for (const FileTransferItem& item : received.Items) {
    const std::string& path = item.Destination;
    const bool isWhole = std::find(incomplete.begin(), incomplete.end(), path) == incomplete.end();
    if (item.Stored && isWhole) sizes[path] = MFile(path).Size();
  }
}

std::vector<ReceivedFile> ListOf(const Sizes& sizes) {
  std::vector<ReceivedFile> files;
  for (const auto& [path, size] : sizes) files.push_back({path, size});
  return files;
}

}  // namespace

bool MayReceive(const std::string& path, const std::string& directory) {
  if (!path.starts_with(directory)) return false;
  const std::string name = path.substr(directory.size());
  return !name.empty() && name.front() != '.' && name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
}

std::vector<ReceivedFile> FetchResults(QorJMClient& client, const Settings& settings, const KnownJob& job,
                                       const std::string& directory,
                                       const std::function<void()>& lookBeforeConfirming) {
  Sizes whole;
  StringList incomplete;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Download download(settings, job, directory);
    FileTransferList received;
    received.Watcher = &download;
    if (!client.RequestResults(job.Handle, received)) {
      if (incomplete.empty()) return {};
      break;
    }
    if (!download.Refused().empty()) {
      throw Failure{kRefused, "the server sent a file for " + download.Refused() + ", which is not one of " + directory,
                    "nothing was written there; do not trust this server"};
    }
    incomplete = Incomplete(received, download);
    Collect(received, incomplete, whole);
    if (incomplete.empty()) {
      lookBeforeConfirming();
      client.ResultsReceived(job.Handle);
      return ListOf(whole);
    }
    client.ResultsIncomplete(job.Handle, incomplete);
  }
  AwaitArrival(client);
  throw Failure{
      kRefused, incomplete.front() + " and perhaps others did not arrive whole",
      "is the disk here full, or is something in the way? The server keeps them: 'tlmctl results' tries again"};
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
