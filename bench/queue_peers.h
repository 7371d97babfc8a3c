// Other programs that run jobs two at a time.
#pragma once

#include <cstddef>

#include "child.h"

namespace tlm::bench {

// All give the seconds that so many runs of `true` take, two at a time.

// What there is without any of them: start one, and whenever one ends the next.
double SecondsOfSpawning(std::size_t jobs);

// task-spooler, with all jobs waiting in its queue: from the end of two jobs before them, which hold it up, until it
// tells of the end of the last one.
inline bool HasTaskSpooler() { return !FindProgram("tsp").empty(); }
double SecondsOfTaskSpooler(std::size_t jobs);

// GNU parallel, its own start included.
inline bool HasParallel() { return !FindProgram("parallel").empty(); }
double SecondsOfParallel(std::size_t jobs);

}  // namespace tlm::bench
