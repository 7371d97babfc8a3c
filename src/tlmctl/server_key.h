// One name for each server, however it is spelled.
#pragma once

#include <string>

namespace tlm::ctl {

// Of HOST:PORT. A server of this machine is named after the machine, since the directory in which the name is kept may
// be shared by several; another by its address, or in lower case as it stands if it has none. May ask a name server.
std::string ServerKey(const std::string& address);

}  // namespace tlm::ctl
