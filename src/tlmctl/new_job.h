// Making a job of a request: what run and submit have in common.
#pragma once

#include <cstdint>

#include "tlmctl/ledger.h"
#include "tlmctl/link.h"
#include "tlmctl/request.h"

namespace tlm::ctl {

// Says what would be sent and run.
int PrintPlan(const Settings& settings, const Request& request);

// Sends what the job needs and submits it; writes it down in the ledger. Throws Failure if the server does not take it.
LedgerEntry SubmitNewJob(Link& link, const Settings& settings, const Request& request, const Plan& planned);

// Tells about the new job: its handle, or what people want to know besides.
void PrintNewJob(const Settings& settings, const LedgerEntry& entry);

}  // namespace tlm::ctl
