// Whether a person is looking.
#pragma once

#include <cstdio>

namespace tlm::platform {

// True if what is written to the stream appears on a terminal.
bool IsTerminal(std::FILE* stream);

}  // namespace tlm::platform
