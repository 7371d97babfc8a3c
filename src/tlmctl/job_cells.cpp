#include "tlmctl/job_cells.h"

#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

Colour ColourOf(std::uint32_t status) {
  switch (status) {
    case Finished:
    case Removed:
      return Colour::Good;
    case Aborted:
    case LaunchFailed:
      return Colour::Bad;
    case Starting:
    case Running:
      return Colour::Busy;
    default:
      return Colour::None;
  }
}

}  // namespace

Cell NameCell(const Task& task) { return {task.AnalysisID.empty() ? kNothing : task.AnalysisID}; }

Cell StateCell(const Task& task) { return {StatusText(task.Status), ColourOf(task.Status)}; }

Cell ProgressCell(const Task& task, int barWidth) {
  if (barWidth == 0) return {std::to_string(task.Progress) + " %"};
  return {ProgressBar(task.Progress, barWidth), ColourOf(task.Status)};
}

}  // namespace tlm::ctl
