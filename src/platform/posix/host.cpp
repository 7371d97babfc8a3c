#include "platform/host.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include "platform/environment.h"
#include "platform/posix/user_directories.h"
#include "platform/process_tree.h"

namespace tlm::platform {
namespace {

constexpr std::string_view kDocumentsEntry = "XDG_DOCUMENTS_DIR=\"";
constexpr std::string_view kHomeMark = "$HOME";

// The text between double quotes in a line for the shell, which begins behind the opening one.
std::string Unquote(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    plain += text[i];
  }
  return plain;
}

std::optional<std::string> ConfiguredDocumentsFolder() {
  std::ifstream file(ConfigurationDirectory() + "/user-dirs.dirs");
  std::optional<std::string> folder;
  for (std::string line; std::getline(file, line);) {
    line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(kDocumentsEntry)) continue;
    const std::string value = Unquote(std::string_view(line).substr(kDocumentsEntry.size()));
    if (value.starts_with('/')) {
      folder = value;
    } else if (value == kHomeMark || value.starts_with(std::string(kHomeMark) + '/')) {
      folder = HomeDirectory() + value.substr(kHomeMark.size());
    }
  }
  return folder;
}

std::string FileNamedBy(const std::string& variable, const std::string& otherwise) {
  const auto path = GetVariable(variable);
  return path && !path->empty() ? *path : otherwise;
}

}  // namespace

std::string ExecutablePath() { return ExecutablePathOf(ProcessId()); }

std::string DocumentsFolder() {
  const std::string home = HomeDirectory();
  const std::string folder = ConfiguredDocumentsFolder().value_or(home.empty() ? home : home + "/Documents");
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  return std::filesystem::is_directory(folder, error) ? folder : std::string();
}

std::string MachineRegistryFile() { return FileNamedBy("TS_MACHINE_REGISTRY", "/etc/corvanta/registry.ini"); }

std::string UserRegistryFile() {
  return FileNamedBy("TS_USER_REGISTRY", ConfigurationDirectory() + "/corvanta/registry.ini");
}

std::int32_t ProcessId() { return getpid(); }

unsigned ProcessorCount() {
  // Those of the machine, not those that this process may use.
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 1 ? static_cast<unsigned>(online) : 1;
}

}  // namespace tlm::platform
