// What the options say that all sub-commands have in common.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "libtsenv/runtime_identity.h"

namespace tlm::ctl {

struct Settings {
  std::string Server;      // HOST[:PORT]; this machine, and the port that a server would take here, if not given
  std::string ClientHost;  // by which the server knows this machine
  std::string Release = Identity().RUNTIME_JM_VERSION;
  std::chrono::seconds WaitServer{0};  // for how long a server that cannot be reached is tried again
  bool Json = false;                   // for programs, not for people
  bool Quiet = false;
  bool Yes = false;                      // nothing is asked
  std::vector<std::string> CommandLine;  // the words that are being carried out, for the ledger
};

}  // namespace tlm::ctl
