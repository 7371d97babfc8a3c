// Signals that would else end the process.
#pragma once

namespace tlm::platform {

// Writing to a pipe or terminal that nobody reads any more, or beyond the largest size that this process's files may
// have, fails from now on like any other write.
void LetWritesFail();

}  // namespace tlm::platform
