// Settings beside the executable.
#pragma once

#include <optional>
#include <string>

namespace tlm {

// The value of the name in the section ENVIRONMENT of the file that is called as this program's executable with ".ini"
// behind it. One pair of quotes around it is taken off, and at most 255 bytes are given; an empty value is none.
std::optional<std::string> IniVariable(const std::string& name);
// The same beside the executable of another program; an empty path has none.
std::optional<std::string> IniVariable(const std::string& executable, const std::string& name);

}  // namespace tlm
