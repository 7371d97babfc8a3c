// How tlmctl ends that has seen a job end, and what it says of the time until then.
#include <gtest/gtest.h>
#include <limits>

#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

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

TEST(JobEnd, HasNoTimeBeforeItOfAJobWhoseStartIsNoTime) {
  Task task;
  task.Status = Running;
  task.Started = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(ElapsedText(task), kNothing);
}
}  // namespace
}  // namespace tlm::ctl
