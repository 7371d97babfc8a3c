// Bringing a job's input to the server.
#pragma once

#include <string>
#include <vector>

#include "jm/qorjmclient.h"

namespace tlm::ctl {

// Maps the client's directory, whose name ends in a separator, and sends the files with these names that lie in it to
// the server's directory for it. What is sent is told on standard error. False if the server could not store all of
// them.
bool SendFiles(QorJMClient& client, const std::string& directory, const std::vector<std::string>& names);

// Those of the files that the server does not hold with the same size.
std::vector<std::string> MissingFiles(QorJMClient& client, const std::string& directory,
                                      const std::vector<std::string>& names);

}  // namespace tlm::ctl
