// Reports to the job manager that runs this program, if one does, and ends the analysis when it asks for that.
#pragma once

#include "heat2d/reporter.h"

namespace heat2d {

// Make it first thing: a stop that comes before is not heard. ResultsAvailable, Succeeded and the end wait for the job
// manager, and that only until a stop is requested.
class JobManagerReporter : public Reporter {
 public:
  JobManagerReporter();
  JobManagerReporter(const JobManagerReporter&) = delete;
  JobManagerReporter& operator=(const JobManagerReporter&) = delete;
  ~JobManagerReporter() override;

  void Progress(std::uint32_t percent) override;
  void ResultsAvailable() override;
  void Succeeded() override;
  bool StopRequested() override;
};

}  // namespace heat2d
