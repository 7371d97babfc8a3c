// What became of the jobs in the ledger.
#pragma once

#include <string>
#include <vector>

#include "tlmctl/ledger.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

struct PastJob {
  LedgerEntry Entry;
  // As programs read it: how it ended; "queued", "starting" or "running"; "gone" if the server has no such job any
  // more; empty if that is not known.
  std::string Outcome;
};

// Asks the server that the settings name about those of its jobs whose ends are not known, if it answers soon. Writes
// down the ends that it tells.
std::vector<PastJob> LearnOutcomes(const Settings& settings, const std::vector<LedgerEntry>& entries);

// For people: "finished, exit code 0".
std::string OutcomeText(const PastJob& job);

Json ToJson(const PastJob& job);

}  // namespace tlm::ctl
