#include "tlmctl/connection.h"

#include <charconv>
#include <system_error>

#include "platform/thread.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kNoCallback = 0;
constexpr char kThisMachine[] = "127.0.0.1";
constexpr std::chrono::milliseconds kRetryInterval{500};

std::uint16_t PortOf(const std::string& text, const std::string& server) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error == std::errc() && end == text.data() + text.size() && port != 0) return port;
  throw Failure{kUsage, server + " is no server", "a server is HOST or HOST:PORT, with a port from 1 to 65535"};
}

std::uint32_t Resolve(const std::string& host) {
  try {
    return ORpcResolveName(host);
  } catch (const OrpcSocketError&) {
    throw Failure{kUnreachable, "no address is known for the host " + host, "check the name behind --server"};
  }
}

void TryToConnect(QorJMClient& client, const ServerAddress& server) {
  const std::uint32_t address = Resolve(server.Host);
  try {
    client.Connect(address, server.Port);
    client.NoticeLoss();
  } catch (const OrpcSocketError& error) {
    throw Failure{kUnreachable,
                  "cannot reach the server at " + server.Text() + ": " + std::system_category().message(error.Number()),
                  "is it running (systemctl status tlmjm2010)? Another one is named with --server or TLM_SERVER"};
  }
}

}  // namespace

ServerAddress AddressOf(const Settings& settings) {
  const std::size_t colon = settings.Server.rfind(':');
  ServerAddress server{settings.Server.substr(0, colon), 0};
  server.Port =
      colon == std::string::npos ? JobManagerPort() : PortOf(settings.Server.substr(colon + 1), settings.Server);
  if (server.Host.empty()) server.Host = kThisMachine;
  return server;
}

void Connect(QorJMClient& client, const Settings& settings) {
  const ServerAddress server = AddressOf(settings);
  const auto end = std::chrono::steady_clock::now() + settings.WaitServer;
  while (true) {
    try {
      return TryToConnect(client, server);
    } catch (const Failure&) {
      if (std::chrono::steady_clock::now() >= end) throw;
    }
    platform::Sleep(kRetryInterval);
  }
}

bool SayHello(QorJMClient& client, const Settings& settings) {
  return client.Hello(settings.Release, settings.ClientHost, kNoCallback);
}

void ConnectForJobs(QorJMClient& client, const Settings& settings) {
  Connect(client, settings);
  if (SayHello(client, settings)) return;
  throw Failure{kRefused, "the server has no programs of release " + settings.Release + " and takes no job",
                "'tlmctl doctor' tells more; another release is named with --release"};
}

double MeasureNullCall(QorJMClient& client) {
  constexpr std::uint32_t kNullProcedure = 0;
  const auto start = std::chrono::steady_clock::now();
  client.BeginCall(kNullProcedure).Flush();
  client.EndCall();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void AwaitArrival(QorJMClient& client) { client.GetJobCount(); }

}  // namespace tlm::ctl
