// The sub-commands, each in a file of its own name.
#pragma once

#include "tlmctl/program.h"

namespace tlm::ctl {

void AddPing(Program& program);
void AddSubmit(Program& program);
void AddList(Program& program);
void AddShow(Program& program);
void AddWatch(Program& program);
void AddOutput(Program& program);
void AddResults(Program& program);
void AddCancel(Program& program);

}  // namespace tlm::ctl
