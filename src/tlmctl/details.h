// What is known of one thing, a line for each.
#pragma once

#include <string>

#include "tlmctl/ledger.h"

namespace tlm::ctl {

void PrintDetail(const char* label, const std::string& value);

// What the user has typed, and where.
void PrintSubmission(const LedgerEntry& entry);

}  // namespace tlm::ctl
