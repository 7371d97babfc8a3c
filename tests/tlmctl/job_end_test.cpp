// How tlmctl ends that has seen a job end.
#include <gtest/gtest.h>

#include "tlmctl/jobs.h"

namespace tlm::ctl {
namespace {

TEST(JobEnd, IsNoSuccessWhereAnotherServerKeepsTheExitCodeToItself) {
  Task task;
  task.Status = Finished;
  task.RunClass = kRunDistributed;
  EXPECT_EQ(ExitCodeOf(task, false), kGood);  // its program has reported success
  task.CompleteOnFailure = true;
  EXPECT_EQ(ExitCodeOf(task, false), kUnknown);
  task.Started = 1;  // here after all
  task.ExitCode = 3;
  EXPECT_EQ(ExitCodeOf(task, false), 3);
  task.Status = Aborted;
  EXPECT_EQ(ExitCodeOf(task, true), kAborted);
}

}  // namespace
}  // namespace tlm::ctl
