#include "exec/result_files.h"

#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "platform/file.h"
#include "platform/file_system.h"
#include "util/mdirectory.h"

namespace tlm {

namespace {

struct Scan {
  const Job& Subject;
  std::vector<MFile> Found;
  std::set<std::string> StemsMet;  // lists may name each other in a circle
};

void ScanStem(Scan& scan, const std::string& stem);

void ScanListedStems(Scan& scan, const MFile& list) {
  std::istringstream words(platform::ReadWholeFile(list.Path()).value_or(""));
  for (std::string stem; words >> stem;) ScanStem(scan, stem);
}

void ScanStem(Scan& scan, const std::string& stem) {
  if (!scan.StemsMet.insert(stem).second) return;
  MDirectory directory(scan.Subject.TempDir);
  if (!directory.Open()) return;
  for (MFile file; directory.Next(file);) {
    if (file.Stem() != stem || file.Name() == scan.Subject.InputFile) continue;
    const std::string extension = file.Extension();
    if (extension == ".exr") {
      ScanListedStems(scan, file);
    } else if (extension != ".crc" && extension != ".rfn") {
      scan.Found.push_back(file);
    }
  }
}

}  // namespace

std::vector<MFile> ResultFileScan(const Job& job) {
  Scan scan{job, {}, {}};
  ScanStem(scan, job.ResultStem);
  return std::move(scan.Found);
}

MFile ResultManifest(const Job& job) { return MFile(job.TempDir + platform::kPathSeparator + job.ResultStem + ".crc"); }

}  // namespace tlm
