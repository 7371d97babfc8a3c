// Jobs in the rows of a table.
#pragma once

#include "jm/task.h"
#include "tlmctl/table.h"

namespace tlm::ctl {

inline constexpr std::size_t kNarrowestName = 6;  // so much of a name tells jobs apart

Cell NameCell(const Task& task);
Cell StateCell(const Task& task);
// As a bar with so many characters between the brackets, or, for 0, as a number.
Cell ProgressCell(const Task& task, int barWidth = 0);

}  // namespace tlm::ctl
