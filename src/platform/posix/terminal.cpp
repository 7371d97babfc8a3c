#include "platform/terminal.h"

#include <unistd.h>

namespace tlm::platform {

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

}  // namespace tlm::platform
