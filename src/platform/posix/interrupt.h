// System calls that a signal handler may cut short.
#pragma once

#include <cerrno>

namespace tlm::platform {

// The result of the call, made again as long as a signal interrupts it.
template <typename Call>
auto RetryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace tlm::platform
