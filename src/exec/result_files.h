// Which files of a job's directory are its results.
#pragma once

#include <vector>

#include "store/job.h"
#include "util/mfile.h"

namespace tlm {

// The files of the job's ResultStem and of every stem that an ".exr" list among them names, in byte order of their
// names for each stem. A list that names a stem a second time brings nothing new. The input file, the lists themselves,
// the manifest, ".rfn"
// files and directories are no results.
std::vector<MFile> ResultFileScan(const Job& job);

// The file that lists the results with their sizes.
MFile ResultManifest(const Job& job);

}  // namespace tlm
