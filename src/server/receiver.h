// What the server lets a client write, and where.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "jm/file_transfer.h"
#include "platform/directory_pin.h"
#include "store/job_manager_state.h"

namespace tlm {

// One for a session; on the thread of the server loop.
class Receiver : public FileTransferWatcher {
 public:
  explicit Receiver(JobManagerState& state) : state_(state) {}

  // By which path a file that the client names is reached; empty if that is not for the client, or lies in one
  // directory too many. Good until Release.
  std::optional<std::string> Reach(const std::string& path) EXCLUDES(state_.StateLock);
  void Release() { pins_.clear(); }

  std::optional<std::string> PathFor(const FileTransferItem& item) override;

 private:
  JobManagerState& state_;
  std::map<std::string, platform::DirectoryPin> pins_;  // by where the directory really lies
};

// False if the disk of the temporary root has less room than the restrictions ask for.
bool HasRoom(const JobManagerState& state) REQUIRES(state.StateLock);

}  // namespace tlm
