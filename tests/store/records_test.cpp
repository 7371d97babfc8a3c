// What is read from submissions and kept of removed jobs.
#include <gtest/gtest.h>

#include "store/job_manager_state.h"
#include "store/submission.h"

namespace tlm {
namespace {

TEST(RemovedHandles, AreTheLastHundred) {
  JobManagerState state;
  for (std::uint64_t handle = 1; handle <= 101; ++handle) RecordRemovedHandle(state, handle);
  const MAutoLock lock(state.PoolLock);
  EXPECT_EQ(state.RemovedHandles.size(), 100U);
  EXPECT_EQ(state.RemovedHandles.front(), 2U);
}

TEST(CommandBaseName, IsTheFirstWordWithoutDirectoryAndSuffix) {
  const std::pair<const char*, const char*> cases[] = {
      {" \t/opt/bin/solve.exe -n 3", "solve"},
      {"C:\\bin\\solve.v2.exe x", "solve"},
      {"\"C:\\the bin\\solve.exe\" x", "solve"},  // blanks inside quotes do not end the word
      {"\"solve me\" x", "\"solve me\""},         // a quote goes only with the directory behind it
      {"dir.d/solve", "solve"},
      {"dir/", ""},
  };
  for (const auto& [command, name] : cases) EXPECT_EQ(CommandBaseName(command), name) << command;
}

}  // namespace
}  // namespace tlm
