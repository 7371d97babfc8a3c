#include <chrono>
#include <iomanip>
#include <iostream>

#include "tlmctl/commands.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kNullProcedure = 0;

double MeasureNullCall(QorJMClient& client) {
  const auto start = std::chrono::steady_clock::now();
  client.BeginCall(kNullProcedure).Flush();
  client.EndCall();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

ExitCode Ping(const ServerOptions& server) {
  QorJMClient client;
  Connect(client, server);
  std::cout << AddressOf(server) << " answered in " << std::fixed << std::setprecision(2) << MeasureNullCall(client)
            << " ms" << std::endl;
  const bool found = SayHello(client, server);
  std::cout << "programs of release " << server.Release << (found ? ": found" : ": not found, jobs will be refused")
            << std::endl;
  return ExitCode::Good;
}

}  // namespace

void AddPing(Program& program) {
  program.AddCommand("ping", "Ask whether the server answers, and whether it takes jobs", Ping);
}

}  // namespace tlm::ctl
