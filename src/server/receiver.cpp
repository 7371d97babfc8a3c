#include "server/receiver.h"

#include <filesystem>

#include "store/confinement.h"
#include "store/trace.h"

namespace tlm {

std::optional<std::string> Receiver::Reach(const std::string& path) {
  if (!state_.Restrictions.Confined) return path;
  const std::size_t name = path.rfind('/') + 1;  // 0 if there is no separator
  const std::string directory = path.substr(0, name);
  auto pin = pins_.find(directory);
  if (pin == pins_.end()) {
    const MAutoLock lock(state_.StateLock);
    std::vector<std::string> roots = AllowedRoots(state_);
    for (const auto& [key, mapped] : session_.DirectoryMap) roots.push_back(mapped);
    auto held = PinBelow(roots, directory);
    if (!held) {
      Trace(state_, "Refused %s, which lies outside\n", path.c_str());
      return std::nullopt;
    }
    pin = pins_.emplace(directory, *std::move(held)).first;
  }
  const std::string file = path.substr(name);
  if (file.empty() || file == "." || file == "..") return std::nullopt;
  return pin->second.Path() + '/' + file;
}

std::optional<std::string> Receiver::PathFor(const FileTransferItem& item) {
  {
    const MAutoLock lock(state_.StateLock);
    if (!HasRoom(state_)) return std::nullopt;
  }
  return Reach(item.Destination);
}

bool HasRoom(const JobManagerState& state) {
  if (state.Restrictions.LeastRoom == 0) return true;
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(state.TempRoot, error);
  return error || space.available >= state.Restrictions.LeastRoom;
}

}  // namespace tlm
