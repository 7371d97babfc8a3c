// Reaching a server.
#pragma once

#include <cstdint>
#include <string>

#include "jm/qorjmclient.h"
#include "libtsenv/runtime_identity.h"

namespace tlm::ctl {

struct ServerOptions {
  std::string Host = "127.0.0.1";
  std::uint16_t Port = 0;  // 0 for the port that a server would take on this machine
  std::string ClientHost;
  std::string Release = Identity().RUNTIME_JM_VERSION;
};

// HOST:PORT, as a user names it.
std::string AddressOf(const ServerOptions& server);

// Throws Failure if the server cannot be reached.
void Connect(QorJMClient& client, const ServerOptions& server);

// Says who is calling; without that the server gives neither jobs nor output. True if the server has programs of the
// release that the options name, so that it takes jobs.
bool SayHello(QorJMClient& client, const ServerOptions& server);

}  // namespace tlm::ctl
