#include "tlmctl/commands.h"

namespace tlm::ctl {

void AddCommands(Program& program) {
  AddRun(program);
  AddSubmit(program);
  AddResults(program);
  AddResubmit(program);
  AddList(program);
  AddShow(program);
  AddWhy(program);
  AddWatch(program);
  AddOutput(program);
  AddWait(program);
  AddCancel(program);
  AddHistory(program);
  AddLast(program);
  AddReport(program);
  AddPing(program);
  AddDoctor(program);
  AddRelease(program);
  AddPriority(program);
  AddQueue(program);
  AddPool(program);
  AddLoadLimit(program);
  AddTempRoot(program);
  AddEnv(program);
  AddFiles(program);
  AddAbortAll(program);
  AddShutdown(program);
  AddCompletion(program);
  AddComplete(program);
  AddManual(program);
}

}  // namespace tlm::ctl
