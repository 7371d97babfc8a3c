// What the first argument of the program asks for.
#pragma once

#include <string>

namespace tlm {

// Runs the command; any argument that is none serves.
void RunCommand(const std::string& command);

}  // namespace tlm
