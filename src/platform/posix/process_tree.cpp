#include "platform/process_tree.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace tlm::platform {

std::optional<ProcessEntry> LookUpProcess(std::int32_t id) {
  // ID (NAME) STATE PARENT ..., where the name may hold blanks and brackets of its own.
  std::ifstream file("/proc/" + std::to_string(id) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  int parent = 0;
  if (close == std::string::npos || std::sscanf(text.c_str() + close, ") %*c %d", &parent) != 1) return std::nullopt;
  return ProcessEntry{parent, text.substr(open + 1, close - open - 1)};
}

std::string ExecutablePathOf(std::int32_t id) {
  constexpr std::string_view kDeletedMark = " (deleted)";
  std::error_code error;
  std::string path = std::filesystem::read_symlink("/proc/" + std::to_string(id) + "/exe", error).string();
  // The system marks a program whose file was replaced while it ran; the path is what settings hang on.
  if (path.ends_with(kDeletedMark) && !std::filesystem::exists(path, error)) {
    path.resize(path.size() - kDeletedMark.size());
  }
  return path;
}

std::int32_t GroupLeader() { return getpgrp(); }

}  // namespace tlm::platform
