// What the first argument of the program asks for.
#pragma once

#include <string>

#include "shell/service.h"

namespace tlm {

// Runs the command; any argument that is none serves. `programName` is the word by which this program was called.
void RunCommand(const std::string& command, const std::string& programName, Service& service);

}  // namespace tlm
