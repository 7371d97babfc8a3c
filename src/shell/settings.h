// Settings that the server takes from the product environment at start.
#pragma once

#include "store/job_manager_state.h"

namespace tlm {

void ApplySettings(JobManagerState& state) EXCLUDES(state.StateLock);

}  // namespace tlm
