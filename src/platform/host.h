// Who and where this process is.
#pragma once

#include <cstdint>
#include <string>

namespace tlm::platform {

std::string HostName();  // empty if the system does not tell
std::string UserName();  // empty if the system does not tell

// Full path of the running program's real file, also if it was started through a link; empty if the system does not
// tell.
std::string ExecutablePath();

// The user's documents folder, made if it is missing; empty if it cannot be had.
std::string DocumentsFolder();

// Files with settings of the machine and of the user, in place of a registry. They need not exist.
std::string MachineRegistryFile();
std::string UserRegistryFile();

std::int32_t ProcessId();
unsigned ProcessorCount();  // at least 1

}  // namespace tlm::platform
