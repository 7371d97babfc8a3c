// Paths on their way to the system.
#pragma once

#include <string>

namespace tlm::platform {

// The system would take a path only up to a zero byte in it, and so meet another file. The empty path names none.
inline const char* SystemPath(const std::string& path) {
  return path.find('\0') == std::string::npos ? path.c_str() : "";
}

}  // namespace tlm::platform
