#include "tlmctl/connection.h"

#include <system_error>

#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kNoCallback = 0;

std::uint32_t Resolve(const std::string& host) {
  try {
    return ORpcResolveName(host);
  } catch (const OrpcSocketError&) {
    throw Failure{ExitCode::NoServer, "no address is known for the host " + host};
  }
}

}  // namespace

std::string AddressOf(const ServerOptions& server) {
  return server.Host + ":" + std::to_string(server.Port != 0 ? server.Port : JobManagerPort());
}

void Connect(QorJMClient& client, const ServerOptions& server) {
  const std::uint32_t address = Resolve(server.Host);
  try {
    client.Connect(address, server.Port);
  } catch (const OrpcSocketError& error) {
    throw Failure{ExitCode::NoServer, "cannot reach the server at " + AddressOf(server) + ": " +
                                          std::system_category().message(error.Number())};
  }
}

bool SayHello(QorJMClient& client, const ServerOptions& server) {
  return client.Hello(server.Release, server.ClientHost, kNoCallback);
}

}  // namespace tlm::ctl
