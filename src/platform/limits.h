// How much of the system's resources this process may use.
#pragma once

namespace tlm::platform {

// Lets this process have as many open descriptors as the system allows it. A program that is started gets the former
// limit back right after its start. To be called before the first thread is started.
void RaiseDescriptorLimit();

}  // namespace tlm::platform
