#include <algorithm>
#include <cstdio>

#include "libtsenv/runtime_identity.h"
#include "platform/file.h"
#include "platform/signals.h"
#include "rpc/orpctrace.h"
#include "tlmctl/commands.h"

int main(int argc, char** argv) {
  tlm::platform::ReserveStandardStreams();
  tlm::SetORpcOutput(stderr);  // standard output is for data
  tlm::platform::LetWritesFail();
  tlm::DetectClient(argc > 0 ? argv[0] : "");

  tlm::ctl::Program program;
  tlm::ctl::AddCommands(program);
  return program.Run({argv + std::min(argc, 1), argv + argc});
}
