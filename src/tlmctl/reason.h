// Why a job is in the state in which it is, in words.
#pragma once

#include <string>
#include <vector>

#include "tlmctl/known_jobs.h"

namespace tlm::ctl {

struct Reason {
  const char* Code;  // as programs read it
  std::string Text;  // a sentence that begins in lower case and has no full stop
  std::string Hint = {};
};

// What a queued job waits for. Asks the other servers of the pool, too, if it may go there.
std::vector<Reason> WhyItWaits(QorJMClient& client, const Settings& settings, const KnownJob& job);

// How and why a job has ended.
std::vector<Reason> WhyItEnded(QorJMClient& client, const Settings& settings, const KnownJob& job);

}  // namespace tlm::ctl
