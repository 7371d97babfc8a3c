// A directory of a test's own. It goes with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/file_system.h"

namespace tlm::test {
inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Sandbox {
 public:
  explicit Sandbox(const std::string& parent = platform::TemporaryDirectory())
      : root_(platform::MakeUniqueDirectory(parent, "tlmtest").value()) {}
  ~Sandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  const std::string& Root() const { return root_; }
  std::string operator/(const std::string& name) const { return root_ + "/" + name; }
  std::string Path(const std::string& name) const { return *this / name; }
  bool Has(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(*this / name));
  }

  std::string MakeDirectory(const std::string& name) const {
    std::filesystem::create_directories(*this / name);
    return *this / name;
  }
  // Makes the directories on the way as well. Gives the path.
  std::string Write(const std::string& name, const std::string& content = "") const {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path(), ignored);
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }
  std::string Read(const std::string& name) const { return ReadFile(*this / name); }
  void WriteScript(const std::string& name, const std::string& body) const {
    Write(name, "#!/bin/sh\n" + body);
    std::filesystem::permissions(*this / name, std::filesystem::perms::owner_all);
  }

 private:
  std::string root_;
};
}  // namespace tlm::test
