#include "tlmctl/client_files.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>

#include "platform/file.h"
#include "platform/thread.h"
#include "tlmctl/exit_code.h"
#include "tlmctl/texts.h"
#include "tlmctl/transfer_progress.h"

namespace tlm::ctl {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLargestFile = std::numeric_limits<std::uint32_t>::max();
constexpr std::chrono::milliseconds kReleaseTime{500};

std::int64_t ModTimeOf(const std::string& path, std::error_code& error) {
  return fs::last_write_time(path, error).time_since_epoch().count();
}

bool IsUnchanged(const ClientFile& file) {
  std::error_code error;
  return fs::file_size(file.Source, error) == file.Size && !error && ModTimeOf(file.Source, error) == file.ModTime;
}

// The server tells of a difference only, and of an empty file as of none: so no question is about an empty one.
std::uint64_t AskedSize(const ClientFile& file) {
  return std::clamp<std::uint64_t>(file.Size.value_or(1), 1, kLargestFile);
}

// Files of one directory on their way.
class DirectoryUpload {
 public:
  DirectoryUpload(Link& link, const Settings& settings, const std::string& directory,
                  const std::vector<ClientFile>& files)
      : link_(link), settings_(settings), directory_(directory), files_(files) {
    for (const ClientFile& file : files) {
      parts_.push_back(file);
      parts_.back().Name += ".tmp";
    }
  }

  void Run() {
    const bool stored = SendAll();
    const std::string names = Missing();
    if (!names.empty())
      throw Failure{kRefused, "the server did not get " + names + " as it is here",
                    "its disk may be full, or a file has changed meanwhile: 'tlmctl doctor' tells more"};
    if (!stored) throw Failure{kRefused, "the server could not store all the files", "'tlmctl doctor' tells more"};
  }

 private:
  bool SendAll() {
    if (Begin()) return true;
    // The call that was broken off may have held the files when the next one was to put them in place.
    if (attempts_ > 1) {
      platform::Sleep(kReleaseTime);
      if (Send()) return true;
    }
    // Another client may have made the server clean up a directory that was still empty. A new connection gets another.
    link_.Drop();
    return Begin();
  }

  // What an upload of somebody else has left is not to be continued.
  bool Begin() {
    link_.Persist([this](QorJMClient& client) {
      Map(client);
      StringList remains;
      for (const ClientFile& part : parts_) remains.push_back(serverDirectory_ + part.Name);
      client.UpdateClientFiles(remains, {});
    });
    attempts_ = 0;
    return Send();
  }

  bool Send() {
    return link_.Persist([this](QorJMClient& client) {
      Map(client);
      FileTransferList list;
      std::uint64_t total = 0;
      const auto arrived =
          attempts_++ > 0 ? SizesOnServer(client, parts_) : std::vector<std::optional<std::uint64_t>>(files_.size());
      for (std::size_t i = 0; i < files_.size(); ++i) {
        const std::uint64_t offset = ResumeOffset(files_[i], arrived[i]);
        list.Items.push_back({serverDirectory_ + files_[i].Name, files_[i].Source, static_cast<std::uint32_t>(offset)});
        total += *files_[i].Size - offset;
      }
      TransferProgress progress(settings_, "sending", total);
      list.Watcher = &progress;
      return client.PutFiles(list);
    });
  }

  void Map(QorJMClient& client) {
    client.MapClientDirectory(directory_, serverDirectory_);
    if (!serverDirectory_.ends_with('/')) serverDirectory_ += '/';
  }

  static std::uint64_t ResumeOffset(const ClientFile& file, std::optional<std::uint64_t> arrived) {
    return arrived && *arrived <= *file.Size && IsUnchanged(file) ? *arrived : 0;
  }

  // Names of those that are not there, or have changed here since they were looked at.
  std::string Missing() {
    return link_.Persist([&](QorJMClient& client) {
      std::string names;
      const auto sizes = SizesOnServer(client, files_);
      for (std::size_t i = 0; i < files_.size(); ++i) {
        if (sizes[i] == files_[i].Size && IsUnchanged(files_[i])) continue;
        names += (names.empty() ? "" : ", ") + files_[i].Given;
      }
      return names;
    });
  }

  Link& link_;
  const Settings& settings_;
  const std::string& directory_;
  const std::vector<ClientFile>& files_;
  std::vector<ClientFile> parts_;  // as they are named on the server before they are whole
  std::string serverDirectory_;
  int attempts_ = 0;
};

}  // namespace

ClientFile Locate(const std::string& path) {
  const std::string shown = path.empty() ? "''" : path;
  std::error_code error;
  const fs::path full = fs::absolute(path, error).lexically_normal();
  if (path.empty() || error || full.filename().empty()) throw Failure{kUsage, shown + " is no file"};
  ClientFile file{path, (full.parent_path() / "").string(), full.filename().string(), full.string(), {}};
  const fs::file_status status = fs::status(full, error);
  if (fs::is_directory(status)) throw Failure{kUsage, shown + " is a directory", "only files travel, one by one"};
  if (!fs::is_regular_file(status)) return file;
  const std::uint64_t size = fs::file_size(full, error);
  file.ModTime = error ? 0 : ModTimeOf(file.Source, error);
  if (!error) file.Size = size;
  return file;
}

void RequireThatItTravels(const ClientFile& file) {
  if (!file.Size) throw Failure{kUsage, "there is no file " + file.Given};
  if (!platform::File::Open(file.Source, platform::File::Mode::Read)) {
    throw Failure{kUsage, file.Given + " cannot be read"};
  }
  if (*file.Size > kLargestFile) {
    throw Failure{kUsage,
                  file.Given + " has " + SizeText(*file.Size) + ", and a file that travels " +
                      std::to_string(kLargestFile) + " bytes at most",
                  "cut it up, or let the job run --in-place where the server reaches the directory"};
  }
  if (file.Name.find('\\') != std::string::npos) throw Failure{kUsage, file.Given + " cannot travel under this name"};
}

std::vector<std::optional<std::uint64_t>> SizesOnServer(QorJMClient& client, const std::vector<ClientFile>& files) {
  StringList entries;
  for (const ClientFile& file : files) entries.push_back(std::to_string(AskedSize(file)) + ":0:" + file.Path());
  StringList different;  // in the order of the entries, each as "size there:0:path"
  client.CheckClientFiles(entries, {different});
  std::vector<std::optional<std::uint64_t>> sizes;
  auto next = different.begin();
  for (const ClientFile& file : files) {
    const std::string tail = ":0:" + file.Path();
    if (next == different.end() || !next->ends_with(tail) || next->find(tail) + tail.size() != next->size()) {
      sizes.emplace_back(AskedSize(file));
      continue;
    }
    const std::uint64_t size = std::strtoull(next->c_str(), nullptr, 10);
    sizes.push_back(size != 0 || client.ClientFileExists(file.Path()) ? std::optional(size) : std::nullopt);
    ++next;
  }
  return sizes;
}

void Upload(Link& link, const Settings& settings, const std::vector<ClientFile>& files) {
  std::map<std::string, std::vector<ClientFile>> directories;
  for (const ClientFile& file : files) directories[file.Directory].push_back(file);
  // One after the other: with each that the server has not met it cleans up, and takes away what is empty.
  for (const auto& [directory, group] : directories) DirectoryUpload(link, settings, directory, group).Run();
}

}  // namespace tlm::ctl
