#include "heat2d/job_manager_reporter.h"

#include <tlmjob.h>

namespace heat2d {

JobManagerReporter::JobManagerReporter() { tlmjob_attach(); }
JobManagerReporter::~JobManagerReporter() { tlmjob_detach(); }
void JobManagerReporter::Progress(std::uint32_t percent) { tlmjob_progress(static_cast<int>(percent)); }
void JobManagerReporter::ResultsAvailable() { tlmjob_results_available(); }
void JobManagerReporter::Succeeded() { tlmjob_succeeded(); }
bool JobManagerReporter::StopRequested() { return tlmjob_stop_requested() != 0; }

}  // namespace heat2d
