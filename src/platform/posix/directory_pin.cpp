#include "platform/directory_pin.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "platform/posix/path.h"

namespace tlm::platform {

std::optional<DirectoryPin> DirectoryPin::Open(const std::string& directory, int& error) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_MAGICLINKS;
  const long descriptor = syscall(SYS_openat2, AT_FDCWD, SystemPath(directory), &how, sizeof how);
  error = descriptor < 0 ? errno : 0;
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

std::string DirectoryPin::RealPath() const {
  std::error_code error;
  return std::filesystem::read_symlink(Path(), error).string();
}

}  // namespace tlm::platform
