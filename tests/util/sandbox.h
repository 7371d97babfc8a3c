// A directory of a test's own, gone with all that is in it at the end of the scope.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

class Sandbox {
 public:
  Sandbox() : root_((std::filesystem::temp_directory_path() / "tlm_test_XXXXXX").string()) {
    if (mkdtemp(root_.data()) == nullptr) throw std::runtime_error("no directory for the test");
  }
  ~Sandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  const std::string& Root() const { return root_; }
  std::string operator/(const std::string& name) const { return root_ + "/" + name; }

  std::string Write(const std::string& name, const std::string& content = "") const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }
  std::string MakeDirectory(const std::string& name) const {
    std::filesystem::create_directories(*this / name);
    return *this / name;
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool Has(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(*this / name));
  }

 private:
  std::string root_;
};
