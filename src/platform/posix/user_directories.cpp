#include "platform/posix/user_directories.h"

#include <pwd.h>
#include <unistd.h>
#include <vector>

#include "platform/environment.h"

namespace tlm::platform {

std::string HomeDirectory() {
  if (const auto home = GetVariable("HOME"); home && !home->empty()) return *home;
  std::vector<char> buffer(16384);
  passwd record{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return {};
  return found->pw_dir != nullptr ? found->pw_dir : "";
}

std::string ConfigurationDirectory() {
  // A relative path there counts as none.
  if (const auto directory = GetVariable("XDG_CONFIG_HOME"); directory && directory->starts_with('/')) {
    return *directory;
  }
  return HomeDirectory() + "/.config";
}

}  // namespace tlm::platform
