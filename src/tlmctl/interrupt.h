// A wish to end, by Ctrl-C for instance, that does not end the program but is looked at when it suits.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace tlm::ctl {

// From now on. A second wish that nobody has looked at yet ends the program at once, and so does a first one that
// nobody has looked at for as long as the patience, as in a call that does not return.
void CatchInterrupts(std::optional<std::chrono::milliseconds> patience = std::nullopt);
inline constexpr std::chrono::milliseconds kInterruptPatience{1000};

// What is said when the program is ended so; one at a time.
void SetLastWords(std::function<void()> say);

// True once for each wish.
bool TakeInterrupt();
// Throws Failure if there is a wish.
void EndIfInterrupted();

}  // namespace tlm::ctl
