// A directory that is held, so that what it is called may change meanwhile.
#pragma once

#include <optional>
#include <string>

namespace tlm::platform {

class DirectoryPin {
 public:
  // The directory of that path, whatever links lead there, but no handle of a process. Empty, and the system's error
  // number, if it cannot be held, for want of descriptors say.
  static std::optional<DirectoryPin> Open(const std::string& directory, int& error);

  DirectoryPin(DirectoryPin&& other) noexcept;
  DirectoryPin& operator=(DirectoryPin&& other) noexcept;
  DirectoryPin(const DirectoryPin&) = delete;
  DirectoryPin& operator=(const DirectoryPin&) = delete;
  ~DirectoryPin();

  // By which this process, and a child until it runs its program, reaches the directory while the object lives.
  std::string Path() const;
  // Where it lies now: absolute, without links and without a separator at its end. Empty if the system cannot tell.
  std::string RealPath() const;

 private:
  explicit DirectoryPin(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

}  // namespace tlm::platform
