// The sub-commands, each in a file of its own name.
#pragma once

#include "tlmctl/program.h"

namespace tlm::ctl {

void AddRun(Program& program);
void AddSubmit(Program& program);
void AddResults(Program& program);
void AddResubmit(Program& program);
void AddList(Program& program);
void AddShow(Program& program);
void AddWhy(Program& program);
void AddWatch(Program& program);
void AddOutput(Program& program);
void AddWait(Program& program);
void AddCancel(Program& program);
void AddHistory(Program& program);
void AddLast(Program& program);
void AddReport(Program& program);
void AddPing(Program& program);
void AddDoctor(Program& program);
void AddRelease(Program& program);
void AddPriority(Program& program);
void AddQueue(Program& program);
void AddPool(Program& program);
void AddLoadLimit(Program& program);
void AddTempRoot(Program& program);
void AddEnv(Program& program);
void AddFiles(Program& program);
void AddAbortAll(Program& program);
void AddShutdown(Program& program);
void AddCompletion(Program& program);
void AddComplete(Program& program);
void AddManual(Program& program);

// All of them, in the order in which people meet them.
void AddCommands(Program& program);

}  // namespace tlm::ctl
