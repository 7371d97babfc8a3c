// Where the product of a client's release is installed.
#pragma once

#include <functional>
#include <string>

namespace tlm {

// Looks up the release of a version token ("tlm2010") in the machine's registry; if there is no key for it, the answer
// is this process's own home, or what lies above the executable's directory. Empty if the key has no home. Throws
// std::out_of_range if the token has no digit, or its first one is its last character. The lines for the trace carry
// their line ends.
std::string InstallPath(const std::string& token, const std::function<void(const std::string&)>& trace);

}  // namespace tlm
