#include "jm/qorjmmsgstream.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

#include "platform/file_system.h"
#include "platform/host.h"

namespace tlm {

namespace {

constexpr std::size_t kLongestDirectory = 1023;  // bytes

}  // namespace

std::string QorJMMsgStream::MessageFileName(std::uint32_t processId, const std::string& directory) {
  const std::string parent = directory.empty() ? platform::CurrentDirectory() : directory;
  if (parent.empty() || (directory.empty() && parent.size() > kLongestDirectory)) return {};
  const std::uint32_t id = processId != 0 ? processId : static_cast<std::uint32_t>(platform::ProcessId());
  return parent + platform::kPathSeparator + "qorjmmsg." + std::to_string(id);
}

bool QorJMMsgStream::ReadMessage(int code, int* value, std::uint32_t processId, const std::string& directory,
                                 bool remove) {
  const std::string path = path_.empty() ? MessageFileName(processId, directory) : path_;
  if (path.empty()) return false;

  std::optional<int> found;
  std::error_code error;
  // Opening anything but a plain file could block.
  if (std::filesystem::is_regular_file(path, error)) {
    std::ifstream stream(path);
    if (stream.good()) path_ = path;
    while (stream.good()) {
      int pairCode = 0;
      int pairValue = 0;
      stream >> pairCode >> pairValue;
      if (pairCode == code) found = pairValue;
    }
  }

  if (found && value != nullptr) *value = *found;
  if (remove) {
    platform::RemoveFile(path);
    path_.clear();
  }
  return found.has_value();
}

}  // namespace tlm
