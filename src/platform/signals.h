// Signals that would else end the process.
#pragma once

namespace tlm::platform {

// Writing to a pipe or terminal that nobody reads any more fails from now on, like any other write.
void IgnoreBrokenPipes();

}  // namespace tlm::platform
