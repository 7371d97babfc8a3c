// In place of job_manager_reporter.cpp where the job manager's client is not built.
#include "heat2d/job_manager_reporter.h"

namespace heat2d {

std::unique_ptr<Reporter> MakeJobManagerReporter(const std::string&, std::ostream& errors) {
  errors << "heat2d: built without a job manager to report to, going on without\n";
  return std::make_unique<OfflineReporter>();
}

}  // namespace heat2d
