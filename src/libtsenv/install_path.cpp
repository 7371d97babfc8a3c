#include "libtsenv/install_path.h"

#include "libtsenv/product_environment.h"
#include "libtsenv/registry.h"
#include "libtsenv/runtime_identity.h"
#include "platform/host.h"

namespace tlm {
namespace {

constexpr std::size_t kLongestRegistryPath = 2047;
constexpr std::size_t kLongestHome = 2048;
constexpr std::size_t kLongestShortRelease = 3;

// "2010" of tlm2010, but "3.0" of plm300: the middle one of three digits is not told.
std::string VersionPart(const std::string& token) {
  std::string digits = token.substr(token.find_first_of("0123456789"));
  if (digits.size() > kLongestShortRelease) return digits;
  return digits.substr(0, 1) + '.' + digits.substr(2, 1);
}

std::string AboveExecutable() {
  const std::string program = platform::ExecutablePath();
  return program.substr(0, program.find_last_of("/\\") + 1) + "..";
}

}  // namespace

std::string InstallPath(const std::string& token, const std::function<void(const std::string&)>& trace) {
  trace("Find install path " + token + "\n");
  const RuntimeIdentity& identity = Identity();
  const std::string key = "SOFTWARE\\Corvanta\\" + identity.RUNTIME_JM_PRODUCT_LONG_PREFIX +
                          identity.RUNTIME_JM_PRODUCT_LONG_SUFFIX + '\\' + VersionPart(token) + "\\Environment";
  trace("Opening Key " + key + "\n");

  const std::string& homeName = identity.RUNTIME_JM_ENVIRONMENT_HOME;
  const RegistryAnswer answer = QueryRegistry(RegistryHive::Machine, key, homeName);
  if (answer.KeyExists) {
    return answer.Value && answer.Value->Data.size() <= kLongestRegistryPath ? answer.Value->Data : std::string();
  }
  if (const auto home = ProductValue(homeName.c_str())) return home->substr(0, kLongestHome);
  return AboveExecutable();
}

}  // namespace tlm
