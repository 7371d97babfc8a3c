// The list of a job's result files that travels behind them, and by which their receiver sees whether all has come. It
// holds sizes; there is no checksum in it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "jm/file_transfer.h"
#include "util/mfile.h"

namespace tlm {

// "crc:1:EXTENSION:HEX NAME:SIZE:DATE:0;" with a line end. Of the extension, what would separate tokens is replaced.
std::string ManifestLine(const MFile& file, std::uint32_t size, std::int64_t date);

struct ManifestEntry {
  std::string Path;
  std::uint32_t Size = 0;
  std::int64_t Date = 0;  // when the file was written where it comes from, in seconds since 1970
};

// What the manifest among the received files tells of them, as it lies on disk now, in its ".tmp" if it has not been
// put in place yet. Nothing if there is none.
std::vector<ManifestEntry> ReadManifest(const FileTransferList& received);

// Files that are shorter than the manifest among the received ones says, as they lie on disk now, each with its path;
// only the first of them unless all are wanted. What has not been put in place yet counts as it lies in its ".tmp". No
// manifest, one that cannot be read, or TSQOR_NO_RESULT_RECOVERY in the environment: nothing is short.
std::vector<std::string> CheckReceivedResults(const FileTransferList& received, bool all);

}  // namespace tlm
