// A wish to end, by Ctrl-C for instance, that does not end the program but is looked at when it suits.
#pragma once

namespace tlm::ctl {

// From now on. A second wish that nobody has looked at yet ends the program at once.
void CatchInterrupts();
// True once for each wish.
bool TakeInterrupt();
// Throws Failure if there is a wish.
void EndIfInterrupted();

}  // namespace tlm::ctl
