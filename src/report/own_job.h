// The job that this process belongs to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tlm::report {

struct OwnJob {
  // That the job manager has started, and by whose id the job is known: this one, or one further up if a script or an
  // interpreter stands between.
  std::int32_t Process = 0;
  std::int32_t JobManager = 0;  // its process
};

// Empty if this process is no job's.
std::optional<OwnJob> FindOwnJob();

// Gives this process the product and the port of its job manager.
void TakeSettingsOfJobManager(const OwnJob& job);

// The event by which the job is asked to end. Hangs on the product.
std::string StopEventName(const OwnJob& job);

}  // namespace tlm::report
