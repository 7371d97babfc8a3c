#include <clocale>
#include <cstdio>
#include <string>

#include "libtsenv/runtime_identity.h"
#include "platform/file.h"
#include "platform/limits.h"
#include "platform/signals.h"
#include "platform/thread.h"
#include "shell/commands.h"
#include "shell/serve.h"
#include "shell/service.h"
#include "util/immortal.h"

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  tlm::platform::ReserveStandardStreams();
  tlm::platform::LetWritesFail();
  tlm::platform::RaiseDescriptorLimit();
  tlm::platform::ShareMemoryPools();

  const std::string programName = argc > 0 ? argv[0] : "";
  static auto& service = tlm::MakeImmortal<tlm::Service>();
  tlm::DetectClient(programName);
  tlm::PrepareServer();
  // A command does not go on as a service, though its environment may look as if a service manager had started it.
  if (argc > 1) {
    tlm::RunCommand(argv[1], programName, service);
  } else {
    service.EnterDispatcher();
  }
  return service.ExitCode();
}
