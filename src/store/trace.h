// The server's log.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

// Writes to the file "JMTrace.log" in TempRoot while "JMTrace.on" exists there, each call behind the local time, and to
// standard output while ConsoleTrace is set. The text carries its own line ends. Never fails visibly. Not to be called
// with PoolLock held, unless StateLock is held too.
[[gnu::format(printf, 2, 3)]] void Trace(JobManagerState& state, const char* format, ...);

}  // namespace tlm
