// A lock on a path, kept by two companion files: path.lck, whose first byte is locked, and path.lci, which tells people
// who holds it (seconds since 1970, host and user, a line each). It binds only those who ask for it. It ends with its
// holder, so that companions left behind by a crash bind nobody. A companion that is a link is left alone, as one that
// cannot be opened.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/file_lock.h"

namespace tlm {

// Used by one thread at a time; threads with an object each exclude one another like processes.
class MLockFile {
 public:
  MLockFile() = default;
  virtual ~MLockFile() { Unlock(); }
  MLockFile(const MLockFile&) = delete;
  MLockFile& operator=(const MLockFile&) = delete;

  // True if the caller may go on, false if another holds the lock. Tries once; with `wait` ten times, a second apart.
  // Where path.lck cannot be opened nothing is locked, and the answer is true. What this object held before is given
  // up.
  [[nodiscard]] bool Lock(const std::string& path, bool wait);
  // Gives the lock up and removes the companions. No effect if it is not held.
  void Unlock();

  // Who was in the way when Lock last failed, as far as path.lci told.
  const std::string& HolderUser() const { return holderUser_; }
  const std::string& HolderHost() const { return holderHost_; }
  std::int32_t HolderTime() const { return holderTime_; }  // low 32 bits of seconds since 1970

 private:
  bool TakeLock(int tries);
  void WriteHolder(const std::string& infoPath);
  void ReadHolder(const std::string& infoPath);

  std::string infoPath_;                    // of the file that this object wrote; empty if none
  std::optional<platform::FileLock> lock_;  // none while nothing is held
  std::string lockPath_;
  std::string holderUser_;
  std::string holderHost_;
  std::int32_t holderTime_ = 0;
};

}  // namespace tlm
