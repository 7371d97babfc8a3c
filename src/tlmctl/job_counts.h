// How many jobs there are.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tlmctl/jobs.h"

namespace tlm::ctl {

enum class PlaceInLife { Waiting, Running, Ended };
PlaceInLife PlaceOf(const Task& task);

struct JobCounts {
  std::size_t Waiting = 0;
  std::size_t Running = 0;
  std::size_t Ended = 0;
};

JobCounts CountJobs(const std::vector<KnownJob>& jobs);

// "1 job", "2 jobs".
std::string JobsText(std::size_t count);

}  // namespace tlm::ctl
