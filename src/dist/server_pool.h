// The other job managers that this one may hand jobs to.
#pragma once

#include "jm/lists.h"
#include "store/job_manager_state.h"

namespace tlm {

// Takes the host names of the pool file, words separated by white space, in the place of those in memory. Without a
// file these stay.
void ReadServerPool(JobManagerState& state) REQUIRES(state.StateLock);

// Changes the names in memory and, as far as it can be written, in the file.
void SetServerPool(JobManagerState& state, const StringList& hosts) REQUIRES(state.StateLock);

}  // namespace tlm
