// Where processes stand among each other.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tlm::platform {

struct ProcessEntry {
  std::int32_t Parent = 0;  // 0 if it has none
  std::string Name;         // of its program's file; the system may cut it, to 15 bytes at the least
};

// Empty if there is no such process, or the system does not tell of it.
std::optional<ProcessEntry> LookUpProcess(std::int32_t id);

// Full path of the real file of the process's program, also if it was started through a link; empty if the system does
// not tell.
std::string ExecutablePathOf(std::int32_t id);

// The process that leads this one's group. It may have ended.
std::int32_t GroupLeader();

}  // namespace tlm::platform
