#include <clocale>
#include <cstdio>

#include "libtsenv/runtime_identity.h"
#include "platform/limits.h"
#include "platform/signals.h"
#include "shell/commands.h"
#include "shell/serve.h"

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  tlm::platform::LetWritesFail();
  tlm::platform::RaiseDescriptorLimit();

  tlm::DetectClient(argc > 0 ? argv[0] : "");
  tlm::PrepareServer();
  if (argc > 1) tlm::RunCommand(argv[1]);
  return 0;
}
