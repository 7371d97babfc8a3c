#include "platform/signals.h"

#include <csignal>

namespace tlm::platform {

void IgnoreBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

}  // namespace tlm::platform
