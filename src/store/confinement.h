// Where clients may have files written and deleted, and jobs run, if they are confined.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/directory_pin.h"
#include "store/job_manager_state.h"

namespace tlm {

// The temporary root and the further roots of the restrictions.
std::vector<std::string> AllowedRoots(const JobManagerState& state) REQUIRES(state.StateLock);

// The directory, held, if it lies below one of the roots, links on the way included. Empty else, and if there is none.
std::optional<platform::DirectoryPin> PinBelow(const std::vector<std::string>& roots, const std::string& directory);

}  // namespace tlm
