#include "store/confinement.h"

namespace tlm {

std::vector<std::string> AllowedRoots(const JobManagerState& state) {
  std::vector<std::string> roots = state.Restrictions.ExtraRoots;
  roots.push_back(state.TempRoot);
  return roots;
}

std::optional<platform::DirectoryPin> PinBelow(const std::vector<std::string>& roots, const std::string& directory) {
  for (const std::string& root : roots) {
    if (auto pin = platform::DirectoryPin::Open(root, directory)) return pin;
  }
  return std::nullopt;
}

}  // namespace tlm
