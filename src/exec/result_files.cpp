#include "exec/result_files.h"

#include <iterator>
#include <map>
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
using StemOrFile = std::variant<std::string, MFile>;

FilesByStem ListFiles(const Job& job) {
  FilesByStem files;
  MDirectory directory(job.TempDir);
  directory.Open();
  for (MFile file; directory.Next(file);) {
    if (file.Name() != job.InputFile && !file.IsDirectory()) files[file.Stem()].push_back(file);
  }
  return files;
}

std::vector<std::string> ListedStems(const MFile& list) {
  std::istringstream words(platform::ReadWholeFile(list.Path()).value_or(""));
  return {std::istream_iterator<std::string>(words), {}};
}

// The first comes to lie on top.
template <class Items>
void Push(const Items& items, std::vector<StemOrFile>& pending) {
  pending.insert(pending.end(), items.rbegin(), items.rend());
}

}  // namespace

std::vector<MFile> ResultFileScan(const Job& job) {
  // Depth first without recursion: a chain of lists may be as long as the directory.
  const FilesByStem files = ListFiles(job);
  std::vector<MFile> found;
  std::set<std::string> stemsMet;  // lists may name each other in a circle
  for (std::vector<StemOrFile> pending{job.ResultStem}; !pending.empty();) {
    const StemOrFile next = std::move(pending.back());
    pending.pop_back();
    if (const auto* stem = std::get_if<std::string>(&next)) {
      const auto named = files.find(*stem);
      if (named != files.end() && stemsMet.insert(*stem).second) Push(named->second, pending);
      continue;
    }
    const auto& file = std::get<MFile>(next);
    const std::string extension = file.Extension();
    if (extension == ".exr") {
      Push(ListedStems(file), pending);
    } else if (extension != ".crc" && extension != ".rfn") {
      found.push_back(file);
    }
  }
  return found;
}

MFile ResultManifest(const Job& job) { return MFile(job.TempDir + platform::kPathSeparator + job.ResultStem + ".crc"); }

}  // namespace tlm
