#include "server/receiver.h"

#include <filesystem>

#include "store/confinement.h"
#include "store/trace.h"

namespace tlm {

namespace {

// Of one call: clients send to one directory as a rule, and a directory that is held takes a descriptor.
constexpr std::size_t kMostDirectories = 64;

}  // namespace

std::optional<std::string> Receiver::Reach(const std::string& path) {
  if (!state_.Restrictions.Confined) return path;
  const std::size_t name = path.rfind('/') + 1;  // 0 if there is no separator
  const std::string file = path.substr(name);
  if (file.empty() || file == "." || file == "..") return std::nullopt;
  const MAutoLock lock(state_.StateLock);
  auto held = PinForClient(state_, path.substr(0, name));
  if (!held) return std::nullopt;
  const std::string place = held->RealPath();
  if (pins_.size() == kMostDirectories && !pins_.contains(place)) {
    Trace(state_, "Refused %s: too many directories in one call\n", path.c_str());
    return std::nullopt;
  }
  return pins_.try_emplace(place, *std::move(held)).first->second.Path() + '/' + file;
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
