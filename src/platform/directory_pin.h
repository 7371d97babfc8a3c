// A directory that is held, so that what it is called may change meanwhile.
#pragma once

#include <optional>
#include <string>

namespace tlm::platform {

class DirectoryPin {
 public:
  // The directory of that path, if no part of the way to it leaves the root, whatever links stand there. Empty else, if
  // there is no such directory, and where the system cannot tell.
  static std::optional<DirectoryPin> Open(const std::string& root, const std::string& directory);

  DirectoryPin(DirectoryPin&& other) noexcept;
  DirectoryPin& operator=(DirectoryPin&& other) noexcept;
  DirectoryPin(const DirectoryPin&) = delete;
  DirectoryPin& operator=(const DirectoryPin&) = delete;
  ~DirectoryPin();

  // By which this process, and a child until it runs its program, reaches the directory while the object lives.
  std::string Path() const;

 private:
  explicit DirectoryPin(int descriptor) : descriptor_(descriptor) {}
  int descriptor_;
};

}  // namespace tlm::platform
