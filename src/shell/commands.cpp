#include "shell/commands.h"

#include <cstdio>

#include "jm/qorjmclient.h"
#include "libtsenv/runtime_identity.h"
#include "shell/serve.h"

namespace tlm {

namespace {

void Stop() {
  try {
    QorJMClient client;
    client.Connect("127.0.0.1", 0);
    client.Shutdown();
  } catch (...) {  // No server is running: that is what was asked for.
  }
}

void Debug() {
  PrintRuntimeVariables(stdout);
  Serve();
}

void RefuseServiceCommand(const std::string& command) {
  std::fprintf(stderr, "%s: not available in this version\n", command.c_str());
}

}  // namespace

void RunCommand(const std::string& command) {
  if (command == "debug") return Debug();
  if (command == "stop") return Stop();
  if (command == "install" || command == "uninstall" || command == "start" || command == "sysinfo") {
    return RefuseServiceCommand(command);
  }
  Serve();
}

}  // namespace tlm
