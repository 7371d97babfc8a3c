// A file for something that is to be sent.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/file_system.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

// It is there, in the system's directory for such files, while the object lives.
class TemporaryFile {
 public:
  // Throws Failure if it cannot be written.
  explicit TemporaryFile(std::string_view content) {
    auto file = path_.Value.empty() ? std::nullopt : platform::File::Open(path_.Value, platform::File::Mode::Truncate);
    if (!file || !file->Write(content) || !file->Close()) {
      throw Failure{kRefused, "cannot write a file to " + platform::TemporaryDirectory(), "is its disk full?"};
    }
  }

  const std::string& Path() const { return path_.Value; }
  std::string Name() const { return std::filesystem::path(Path()).filename().string(); }

 private:
  // Takes the file away also when the constructor above has failed.
  struct OwnedPath {
    OwnedPath() = default;
    OwnedPath(const OwnedPath&) = delete;
    OwnedPath& operator=(const OwnedPath&) = delete;
    ~OwnedPath() {
      if (!Value.empty()) platform::RemoveFile(Value);
    }
    const std::string Value = platform::MakeUniqueFile(platform::TemporaryDirectory(), "tlmctl").value_or("");
  };
  const OwnedPath path_;
};

}  // namespace tlm::ctl
