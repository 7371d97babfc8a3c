// A job as programs read it.
#pragma once

#include <cstdint>

#include "jm/task.h"
#include "tlmctl/console.h"

namespace tlm::ctl {

// The time as text; null for 0.
Json TimeJson(std::int64_t time);

Json JobJson(std::uint64_t handle, const Task& task);

}  // namespace tlm::ctl
