// The user's own directories, by the desktop's conventions.
#pragma once

#include <string>

namespace tlm::platform {

std::string HomeDirectory();  // empty if the user has none
std::string ConfigurationDirectory();

}  // namespace tlm::platform
