#include "dist/server_pool.h"

#include <optional>
#include <sstream>

#include "exec/temp_directories.h"
#include "libtsenv/runtime_identity.h"
#include "platform/file.h"

namespace tlm {

namespace {

using platform::File;

std::string PoolPath(const JobManagerState& state) REQUIRES(state.StateLock) {
  return state.TempRoot + Identity().RUNTIME_JM_DISTPOOL_STATUS_FILE;
}

}  // namespace

void ReadServerPool(JobManagerState& state) {
  const std::optional<std::string> content = platform::ReadWholeFile(PoolPath(state));
  if (!content) return;
  state.ServerPool.clear();
  std::istringstream words(*content);
  for (std::string host; words >> host;) state.ServerPool.push_back(host);
}

void SetServerPool(JobManagerState& state, const StringList& hosts) {
  state.ServerPool = hosts;
  std::string text;
  for (const std::string& host : hosts) text += host + '\n';
  EnsureTempRoot(state);
  if (std::optional<File> file = File::Open(PoolPath(state), File::Mode::Truncate)) {
    static_cast<void>(file->Write(text));
  }
}

}  // namespace tlm
