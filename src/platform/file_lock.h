// A lock on the first byte of a file. It binds processes, and threads of one process that opened the file each for
// itself, and it ends with its holder.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace tlm::platform {

// Used by one thread at a time.
class FileLock {
 public:
  // Opens the file without locking it, makes it if it is missing and empties it if it is not. Empty if it cannot be
  // opened for writing, or is a link, which may lead anywhere.
  static std::optional<FileLock> Open(const std::string& path);

  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();  // gives the lock up

  // Never waits. False if another holds it.
  [[nodiscard]] bool TryLock();
  // True if the path that was opened still names the opened file, and not another one or none.
  bool IsCurrent() const;

 private:
  FileLock(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}
  int descriptor_;
  std::string path_;
};

}  // namespace tlm::platform
