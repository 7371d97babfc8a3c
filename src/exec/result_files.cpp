#include "exec/result_files.h"

#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <variant>

#include "platform/file.h"
#include "platform/file_system.h"
#include "util/mdirectory.h"

namespace tlm {

namespace {

using FilesByStem = std::map<std::string, std::vector<MFile>>;

struct StemDone {
  std::string Stem;
};
using Pending = std::variant<std::string, MFile, StemDone>;  // a stem that is named, a file, the end of a stem's files

bool IsRegular(const MFile& file) {
  platform::FileStatus status;
  return platform::GetFileStatus(file.Path(), status) == 0 && status.IsRegular;
}

// Empty if the directory is there and cannot be read.
std::optional<FilesByStem> ListFiles(const Job& job, const std::string& path) {
  FilesByStem files;
  MDirectory directory(path);
  if (!directory.Open() && directory.IsDirectory()) return std::nullopt;
  for (MFile file; directory.Next(file);) {
    if (file.Name() != job.InputFile) files[file.Stem()].push_back(file);
  }
  return files;
}

// Follows the lists depth first, without recursion: a chain of them may be as long as the directory.
class Scan {
 public:
  Scan(const FilesByStem& files, const std::string& stem) : files_(files), pending_{stem} {}

  std::vector<MFile> Run() {
    while (!pending_.empty()) {
      const Pending next = std::move(pending_.back());
      pending_.pop_back();
      std::visit([this](const auto& item) { Take(item); }, next);
    }
    return std::move(found_);
  }

 private:
  void Take(const std::string& stem) {
    const auto named = files_.find(stem);
    if (named == files_.end() || !open_.insert(stem).second) return;
    pending_.emplace_back(StemDone{stem});
    pending_.insert(pending_.end(), named->second.rbegin(), named->second.rend());  // the first comes to lie on top
  }
  void Take(const StemDone& done) { open_.erase(done.Stem); }
  void Take(const MFile& file) {
    if (!IsRegular(file)) return;
    const std::string extension = file.Extension();
    if (extension == ".exr") {
      if (read_.insert(file.Name()).second) TakeList(file);
    } else if (extension != ".crc" && extension != ".rfn") {
      found_.push_back(file);
    }
  }
  void TakeList(const MFile& list) {
    std::istringstream words(platform::ReadWholeFile(list.Path()).value_or(""));
    const std::vector<std::string> stems{std::istream_iterator<std::string>(words), {}};
    pending_.insert(pending_.end(), stems.rbegin(), stems.rend());
  }

  const FilesByStem& files_;
  std::vector<Pending> pending_;
  std::set<std::string> open_;  // stems whose files are not all taken yet: lists may name each other in a circle
  std::set<std::string> read_;  // lists, each of which is followed once
  std::vector<MFile> found_;
};

}  // namespace

std::optional<std::vector<MFile>> ResultFileScan(const Job& job, const std::string& directory) {
  const std::optional<FilesByStem> files = ListFiles(job, directory);
  if (!files) return std::nullopt;
  return Scan(*files, job.ResultStem).Run();
}

MFile ResultManifest(const Job& job, const std::string& directory) {
  return MFile(directory + platform::kPathSeparator + job.ResultStem + ".crc");
}

}  // namespace tlm
