// Which directories are for clients: where they may have files written and deleted, and jobs run, if they are confined.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/directory_pin.h"
#include "platform/file.h"
#include "store/directory_records.h"
#include "store/job_manager_state.h"

namespace tlm {

// With this the names of the directories begin that the server makes in the temporary root.
inline constexpr char kServerDirectoryPrefix[] = "tq";

// For confined clients: the directory, held, if that is a directory of the server in the temporary root, or a further
// root, or lies below one, links on the way included. All else in the temporary root is the server's own, even if a
// further root holds that root. Empty, which is traced, for what is not for clients or cannot be held.
std::optional<platform::DirectoryPin> PinForClient(JobManagerState& state, const std::string& directory)
    REQUIRES(state.StateLock);

// A directory of a client, as the server reaches it: held if clients are confined, else by its name.
class ClientDirectory {
 public:
  // Empty, which is traced, for what is not for confined clients. Never empty if they are not.
  static std::optional<ClientDirectory> Open(JobManagerState& state, const std::string& directory)
      REQUIRES(state.StateLock);

  const std::string& Path() const { return path_; }
  bool IsHeld() const { return pin_.has_value(); }
  // What becomes of a link in the place of a file that is written there.
  platform::File::Links Links() const {
    return IsHeld() ? platform::File::Links::Refuse : platform::File::Links::Follow;
  }

 private:
  ClientDirectory(std::string path, std::optional<platform::DirectoryPin> pin)
      : path_(std::move(path)), pin_(std::move(pin)) {}

  std::string path_;
  std::optional<platform::DirectoryPin> pin_;
};

// True for the temporary root, a further root, and what lies below one, links on the way included.
bool MayBecomeTempRoot(JobManagerState& state, const std::string& directory) REQUIRES(state.StateLock);

// The table of the temporary root, as ReadDirectoryRecords gives it. If clients are confined, without the records of
// what is not named as a directory of the server right in that root.
std::optional<std::vector<DirectoryRecord>> OwnDirectoryRecords(const JobManagerState& state) REQUIRES(state.StateLock);

}  // namespace tlm
