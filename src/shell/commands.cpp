#include "shell/commands.h"

#include <cstdio>

#include "jm/qorjmclient.h"
#include "libtsenv/runtime_identity.h"
#include "platform/host.h"
#include "platform/machine.h"
#include "shell/serve.h"
#include "shell/system_report.h"

namespace tlm {

namespace {

void TellFailure(const std::string& line) {
  if (!line.empty()) std::fprintf(stderr, "%s\n", line.c_str());
}

// The client product hangs on the word by which the program is called.
void Install(const std::string& programName) {
  const std::string program = platform::ExecutablePath();
  TellFailure(platform::InstallService({.Name = Identity().RUNTIME_JM_SHORT_NAME,
                                        .DisplayName = Identity().RUNTIME_JM_LONG_NAME,
                                        .Program = program,
                                        .FirstWord = programName.empty() ? program : programName}));
}

void Uninstall() {
  CleanUp();
  TellFailure(platform::UninstallService(Identity().RUNTIME_JM_SHORT_NAME));
}

}  // namespace

void RunCommand(const std::string& command, const std::string& programName, Service& service) {
  if (command == "install") return Install(programName);
  if (command == "uninstall") return Uninstall();
  if (command == "start") return TellFailure(platform::StartService(Identity().RUNTIME_JM_SHORT_NAME));
  if (command == "stop") return static_cast<void>(StopLocalServer(JobManagerPort()));
  if (command == "sysinfo") return PrintSystemReport(stdout, platform::DescribeMachine());
  if (command == "debug") PrintRuntimeVariables(stdout);
  service.ServeInForeground();
}

}  // namespace tlm
