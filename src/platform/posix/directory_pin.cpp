#include "platform/directory_pin.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include "platform/posix/path.h"

namespace tlm::platform {

std::optional<DirectoryPin> DirectoryPin::Open(const std::string& root, const std::string& directory) {
  const std::string top = SystemPath(root);
  const std::string path = SystemPath(directory);
  if (!path.starts_with(top) || (path.size() > top.size() && path[top.size()] != '/')) return std::nullopt;
  std::string below = path.substr(top.size());
  below.erase(0, below.find_first_not_of('/'));
  if (below.empty()) below = ".";

  const int start = open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (start < 0) return std::nullopt;
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  const long descriptor = syscall(SYS_openat2, start, below.c_str(), &how, sizeof how);
  close(start);
  if (descriptor < 0) return std::nullopt;
  return DirectoryPin(static_cast<int>(descriptor));
}

DirectoryPin::DirectoryPin(DirectoryPin&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

DirectoryPin& DirectoryPin::operator=(DirectoryPin&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

DirectoryPin::~DirectoryPin() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::string DirectoryPin::Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

}  // namespace tlm::platform
