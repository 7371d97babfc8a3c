#include "store/confinement.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/file_system.h"
#include "store/trace.h"

namespace tlm {

namespace {

using platform::DirectoryPin;
using platform::kPathSeparator;

std::string_view WithoutEndingSeparators(std::string_view path) {
  return path.substr(0, path.find_last_not_of(kPathSeparator) + 1);
}

// Where the root lies really, or would if it were there. Empty if the system cannot tell.
std::optional<std::string> RealRoot(const std::string& root) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::weakly_canonical(root, error);
  if (error || root.empty()) return std::nullopt;
  return std::string(WithoutEndingSeparators(real.string()));
}

// What the path has behind the top, empty for the top itself.
std::optional<std::string_view> PartBelow(std::string_view path, const std::optional<std::string>& top) {
  if (!top || !path.starts_with(*top)) return std::nullopt;
  path.remove_prefix(top->size());
  if (!path.empty() && path.front() != kPathSeparator) return std::nullopt;
  return path.substr(std::min(path.find_first_not_of(kPathSeparator), path.size()));
}

bool IsForClients(const JobManagerState& state, const std::string& path) REQUIRES(state.StateLock) {
  const std::optional<std::string> tempRoot = RealRoot(state.TempRoot);
  if (path.empty() || !tempRoot) return false;
  const auto inTempRoot = PartBelow(path, tempRoot);
  if (inTempRoot && inTempRoot->starts_with(kServerDirectoryPrefix)) return true;
  const auto opens = [&](const std::string& root) {
    const auto real = RealRoot(root);
    return PartBelow(path, real) && !(inTempRoot && PartBelow(*tempRoot, real));
  };
  return std::any_of(state.Restrictions.ExtraRoots.begin(), state.Restrictions.ExtraRoots.end(), opens);
}

std::optional<DirectoryPin> Hold(JobManagerState& state, const std::string& directory) REQUIRES(state.StateLock) {
  int error = 0;
  auto pin = DirectoryPin::Open(directory, error);
  if (!pin) Trace(state, "Refused %s: %s\n", directory.c_str(), std::system_category().message(error).c_str());
  return pin;
}

}  // namespace

std::optional<DirectoryPin> PinForClient(JobManagerState& state, const std::string& directory) {
  auto pin = Hold(state, directory);
  if (!pin || IsForClients(state, pin->RealPath())) return pin;
  Trace(state, "Refused %s, which lies outside\n", directory.c_str());
  return std::nullopt;
}

std::optional<ClientDirectory> ClientDirectory::Open(JobManagerState& state, const std::string& directory) {
  if (!state.Restrictions.Confined) return ClientDirectory(directory, std::nullopt);
  auto pin = PinForClient(state, directory);
  if (!pin) return std::nullopt;
  std::string path = pin->Path();
  return ClientDirectory(std::move(path), std::move(pin));
}

bool MayBecomeTempRoot(JobManagerState& state, const std::string& directory) {
  if (!state.Restrictions.Confined) return true;
  const auto pin = Hold(state, directory);
  if (!pin) return false;
  const std::string path = pin->RealPath();
  const auto holds = [&](const std::string& root) { return PartBelow(path, RealRoot(root)).has_value(); };
  const std::vector<std::string>& further = state.Restrictions.ExtraRoots;
  return holds(state.TempRoot) || std::any_of(further.begin(), further.end(), holds);
}

std::optional<std::vector<DirectoryRecord>> OwnDirectoryRecords(const JobManagerState& state) {
  auto records = ReadDirectoryRecords(DirectoryRecordsPath(state.TempRoot));
  if (!records || !state.Restrictions.Confined) return records;
  const std::string root(WithoutEndingSeparators(state.TempRoot));
  std::erase_if(*records, [&root](const DirectoryRecord& record) {
    const auto name = PartBelow(record.Directory, root);
    return !name || !name->starts_with(kServerDirectoryPrefix) || name->find(kPathSeparator) != name->npos;
  });
  return records;
}

}  // namespace tlm
