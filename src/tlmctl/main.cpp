#include "libtsenv/runtime_identity.h"
#include "platform/signals.h"
#include "tlmctl/commands.h"

int main(int argc, char** argv) {
  tlm::platform::LetWritesFail();
  tlm::DetectClient(argc > 0 ? argv[0] : "");

  tlm::ctl::Program program;
  tlm::ctl::AddPing(program);
  tlm::ctl::AddSubmit(program);
  tlm::ctl::AddList(program);
  tlm::ctl::AddShow(program);
  tlm::ctl::AddWatch(program);
  tlm::ctl::AddOutput(program);
  tlm::ctl::AddResults(program);
  tlm::ctl::AddCancel(program);
  return program.Run(argc, argv);
}
