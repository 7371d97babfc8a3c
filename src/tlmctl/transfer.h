// Bringing a job's input to the server.
#pragma once

#include <string>
#include <vector>

#include "tlmctl/link.h"
#include "tlmctl/request.h"

namespace tlm::ctl {

struct Decision {
  ClientFile File;
  bool Sends = false;
  std::string Reason;
};

// What has to be sent, by what the server holds for the directory and what the ledger tells of earlier transfers.
std::vector<Decision> DecideTransfers(QorJMClient& client, const Settings& settings, const Plan& plan, bool all);

// Sends what has been decided, as Upload does.
void SendFiles(Link& link, const Settings& settings, const std::vector<Decision>& decisions);

}  // namespace tlm::ctl
