#include "tlmctl/job_counts.h"

namespace tlm::ctl {

JobCounts CountJobs(const std::vector<KnownJob>& jobs) {
  JobCounts counts;
  for (const KnownJob& job : jobs) {
    ++(HasEnded(job.State) ? counts.Ended : job.State.Status == Queued ? counts.Waiting : counts.Running);
  }
  return counts;
}

std::string JobsText(std::size_t count) { return std::to_string(count) + (count == 1 ? " job" : " jobs"); }

}  // namespace tlm::ctl
