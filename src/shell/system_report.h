// What a support person wants to know of the machine.
#pragma once

#include <cstdio>

#include "platform/machine.h"

namespace tlm {

// Five lines. Of each text at most 128 bytes are printed.
void PrintSystemReport(std::FILE* output, const platform::MachineDescription& machine);

}  // namespace tlm
