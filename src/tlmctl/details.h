// What is known of one thing, a line for each.
#pragma once

#include <string>

#include "tlmctl/ledger.h"

namespace tlm::ctl {

void PrintDetail(const char* label, const std::string& value);

// What the user has typed, as a shell takes it.
std::string CommandLineText(const LedgerEntry& entry);

// That, and where, and the files that were sent.
void PrintSubmission(const LedgerEntry& entry);

}  // namespace tlm::ctl
