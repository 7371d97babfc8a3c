#include "tlmctl/job_counts.h"

namespace tlm::ctl {

PlaceInLife PlaceOf(const Task& task) {
  if (HasEnded(task)) return PlaceInLife::Ended;
  return task.Status == Queued ? PlaceInLife::Waiting : PlaceInLife::Running;
}

JobCounts CountJobs(const std::vector<KnownJob>& jobs) {
  JobCounts counts;
  for (const KnownJob& job : jobs) {
    const PlaceInLife place = PlaceOf(job.State);
    ++(place == PlaceInLife::Ended ? counts.Ended : place == PlaceInLife::Waiting ? counts.Waiting : counts.Running);
  }
  return counts;
}

std::string JobsText(std::size_t count) { return std::to_string(count) + (count == 1 ? " job" : " jobs"); }

}  // namespace tlm::ctl
