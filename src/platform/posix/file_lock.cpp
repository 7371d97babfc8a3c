#include "platform/file_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/posix/interrupt.h"
#include "platform/posix/path.h"

namespace tlm::platform {

namespace {

constexpr mode_t kNewFile = 0666;  // less the umask

}  // namespace

std::optional<FileLock> FileLock::Open(const std::string& path) {
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const int descriptor = RetryInterrupted([&] { return open(SystemPath(path), flags, kNewFile); });
  if (descriptor < 0) return std::nullopt;
  return FileLock(descriptor, path);
}

FileLock::FileLock(FileLock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), path_(std::move(other.path_)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  FileLock moved(std::move(other));  // takes what was held here along and gives it up
  std::swap(descriptor_, moved.descriptor_);
  std::swap(path_, moved.path_);
  return *this;
}

FileLock::~FileLock() {
  if (descriptor_ >= 0) close(descriptor_);
}

bool FileLock::TryLock() {
  // The lock belongs to the open file and not to the process, so that threads exclude each other too.
  struct flock firstByte = {};
  firstByte.l_type = F_WRLCK;
  firstByte.l_whence = SEEK_SET;
  firstByte.l_start = 0;
  firstByte.l_len = 1;
  return RetryInterrupted([&] { return fcntl(descriptor_, F_OFD_SETLK, &firstByte); }) == 0;
}

bool FileLock::IsCurrent() const {
  struct stat opened;
  struct stat named;
  return fstat(descriptor_, &opened) == 0 && stat(SystemPath(path_), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

}  // namespace tlm::platform
