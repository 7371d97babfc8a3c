// Reports to the job manager of this machine, and ends the analysis when it asks for that.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "heat2d/reporter.h"

namespace heat2d {

// Make it first thing: a stop that comes before is lost. `command` is how the job manager is to know this process.
// Never waits for the job manager but in ResultsAvailable, Succeeded and at its end, and there only until a stop is
// requested. Without a job manager the analysis goes on alone; `errors` is told once, on another thread, and has to
// last as long as the process.
std::unique_ptr<Reporter> MakeJobManagerReporter(const std::string& command, std::ostream& errors);

}  // namespace heat2d
