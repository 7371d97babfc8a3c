#include "tlmctl/connection.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "libtsenv/runtime_identity.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "rpc/callheader.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "tlmctl/interrupt.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kNoCallback = 0;
constexpr char kThisMachine[] = "127.0.0.1";
constexpr std::chrono::milliseconds kRetryInterval{500};
constexpr std::chrono::seconds kUsualPatience{10};

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
    throw Failure{kUnreachable, "no address is known for the host " + host,
                  "check the name: servers have IPv4 addresses"};
  }
}

std::string IsItRunning(std::uint32_t address) {
  const std::string unit =
      platform::IsOwnAddress(address) ? " (systemctl status " + Identity().RUNTIME_JM_SHORT_NAME + ')' : "";
  return "is it running" + unit + "? Another one is named with --server or TLM_SERVER";
}

void OpenConnection(QorJMClient& client, const ServerAddress& server) {
  const std::uint32_t address = Resolve(server.Host);
  try {
    client.Connect(address, server.Port);
    client.NoticeLoss();
  } catch (const OrpcSocketError& error) {
    throw Failure{kUnreachable,
                  "cannot reach the server at " + server.Text() + ": " + std::system_category().message(error.Number()),
                  IsItRunning(address)};
  }
}

// Whatever takes connections at the port might be listening.
void AwaitFirstAnswer(QorJMClient& client, const ServerAddress& server) {
  constexpr char kHint[] = "is it a job manager that listens at that port?";
  try {
    MeasureNullCall(client);
  } catch (const OrpcSocketError& error) {
    if (IsRefusal(error)) throw;
    if (error.Number() == platform::kTimedOut) {
      throw Failure{
          kUnreachable, server.Text() + " accepts connections, and does not answer",
          "a server that is busy with a long transfer answers late: try again, or wait with --wait-server 5m"};
    }
    throw Failure{kUnreachable, server.Text() + " accepts connections, and does not answer as a job manager does",
                  kHint};
  } catch (int) {
    throw Failure{kUnreachable, server.Text() + " accepts connections, and ends them or sends what cannot be read",
                  kHint};
  }
}

}  // namespace

ServerAddress AddressOf(const Settings& settings) {
  if (std::count(settings.Server.begin(), settings.Server.end(), ':') > 1) {
    throw Failure{kUsage, settings.Server + " is no server", "servers are reached by IPv4 only, as in 127.0.0.1:20317"};
  }
  const std::size_t colon = settings.Server.rfind(':');
  ServerAddress server{settings.Server.substr(0, colon), 0};
  server.Port =
      colon == std::string::npos ? JobManagerPort() : PortOf(settings.Server.substr(colon + 1), settings.Server);
  if (server.Host.empty()) server.Host = kThisMachine;
  return server;
}

void Connect(QorJMClient& client, const Settings& settings, std::chrono::seconds patience) {
  const ServerAddress server = AddressOf(settings);
  const auto end = std::chrono::steady_clock::now() + settings.WaitServer;
  client.GiveUpAt(end + patience);
  while (true) {
    try {
      OpenConnection(client, server);
      AwaitFirstAnswer(client, server);
      return client.GiveUpAt({});
    } catch (const Failure&) {
      if (std::chrono::steady_clock::now() >= end) throw;
    }
    EndIfInterrupted();
    platform::Sleep(kRetryInterval);
  }
}

void Connect(QorJMClient& client, const Settings& settings) { Connect(client, settings, kUsualPatience); }

bool SayHello(QorJMClient& client, const Settings& settings) {
  return client.Hello(settings.Release, settings.ClientHost, kNoCallback);
}

void ConnectForJobs(QorJMClient& client, const Settings& settings) {
  Connect(client, settings);
  if (SayHello(client, settings)) return;
  throw Failure{kRefused, "the server has no programs of release " + settings.Release + " and takes no job",
                "'tlmctl doctor' tells more; another release is named with --release"};
}

Failure RefusedChange() {
  return {kRefused, "the server has not done it",
          "its settings may leave that to who is on its own machine (LOCAL_ADMIN); its trace tells more"};
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
