// Bringing a job's input to the server.
#pragma once

#include <string>
#include <vector>

#include "jm/qorjmclient.h"

namespace tlm::ctl {

// Maps the client's directory, whose name ends in a separator, and sends the files with these names that lie in it to
// the server's directory for it; if so asked, only those that the server does not hold with the same size. What is
// sent is told on standard error. Throws Failure if the server could not store all of them.
void SendFiles(QorJMClient& client, const std::string& directory, const std::vector<std::string>& names,
               bool onlyMissing);

}  // namespace tlm::ctl
