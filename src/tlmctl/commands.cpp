#include "tlmctl/commands.h"

namespace tlm::ctl {

void AddCommands(Program& program) {
  static constexpr void (*kAll[])(Program&) = {
      AddRun,      AddSubmit,   AddResults,    AddResubmit, AddList,      AddShow,     AddWhy,  AddWatch,
      AddOutput,   AddWait,     AddCancel,     AddHistory,  AddLast,      AddReport,   AddPing, AddDoctor,
      AddRelease,  AddPriority, AddQueue,      AddPool,     AddLoadLimit, AddTempRoot, AddEnv,  AddFiles,
      AddAbortAll, AddShutdown, AddCompletion, AddComplete, AddManual,
  };
  for (const auto add : kAll) add(program);
}

}  // namespace tlm::ctl
