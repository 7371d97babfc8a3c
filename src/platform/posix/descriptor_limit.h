// What the raised limit of this process means for those that it starts.
#pragma once

#include <sys/types.h>

namespace tlm::platform {

// Gives a child that has not been waited for the limit that stood before RaiseDescriptorLimit. It can have begun to
// run, but a program that cares about the limit does not ask in its first moments, while libraries are still being
// loaded.
void RestoreDescriptorLimit(pid_t child) noexcept;

}  // namespace tlm::platform
