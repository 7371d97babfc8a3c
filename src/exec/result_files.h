// Which files of a job's directory are its results. The directory is the job's TempDir, or another path to it.
#pragma once

#include <optional>
#include <vector>

#include "store/job.h"
#include "util/mfile.h"

namespace tlm {

// The files of the job's ResultStem and of every stem that an ".exr" list among them names, in byte order of their
// names for each stem; a file stands there twice if two lists name its stem. A list is followed once, and not back to a
// stem that it was reached through. The input file, the lists themselves, the manifest, ".rfn" files and what is no
// file proper are no results. Empty if the directory is there and cannot be read.
std::optional<std::vector<MFile>> ResultFileScan(const Job& job, const std::string& directory);

// The file that lists the results with their sizes.
MFile ResultManifest(const Job& job, const std::string& directory);

}  // namespace tlm
