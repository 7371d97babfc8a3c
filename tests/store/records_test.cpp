// Records as text, and what is read from and kept of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/job_manager_state.h"
#include "store/submission.h"

namespace tlm {
namespace {

TEST(JobText, ShowsTheFieldsInTheirOrderAndForm) {
  Job job;
  job.AnalysisID = "beam";
  job.ClientPort = 4294967295U;
  job.ProcessID = (std::int64_t{7} << 32) + 5;
  job.TaskKey = "key";
  job.TaskType = (std::uint64_t{1} << 40) + 3;
  job.UpdateTimestamp = 86400;
  job.Killed = -2;
  job.SuccessFlag = job.Lite = true;
  job.Pid = 1234;
  job.RemoteJob = 18446744073709551615U;
  job.CreatorJob = 4;
  job.Handle = 8;
  job.TempDir = "/t";
  job.OutFile = "/t/beam_out";
  job.Env = "A=b";
  job.BinPath = "/bin/";
  job.SentFileSize = {{"b", 2}, {"a", 1}};
  job.SentFileDate = {{"a", 951782400}};
  EXPECT_EQ(DescribeJob(job),
            "(Analysis ID=beam),(Client Port=4294967295),(Scheduled=Thu Jan  1 00:00:00 1970/0),(ProcessID=5),"
            "(Task Key=key),(Task Type=3),(Task Level=0),(UpdateTimestamp=Fri Jan  2 00:00:00 1970/86400),"
            "(Dependents=0),(Failures=0),(Killed=-2)(SuccessFlag=true)(Retry=false)(Pid=1234),(Lite=true)"
            "(RemoteJob=18446744073709551615),(CreatorJob=4),(Handle=8),(TempDir=/t),(OutFile=/t/beam_out),"
            "(Env=A=b),(BinPath=/bin/),(SentFileSize=(Count=2),(a=1),(b=2),),"
            "(SentFileDate=(Count=1),(a=Tue Feb 29 00:00:00 2000/951782400),)");
  EXPECT_THAT(DescribeJob(Job()), ::testing::EndsWith("(SentFileSize=(Count=0),),(SentFileDate=(Count=0),)"));
  EXPECT_EQ(TimeText(INT64_MAX), "-1");
}

TEST(RemovedHandles, AreTheLastHundred) {
  JobManagerState state;
  for (std::uint64_t handle = 1; handle <= 101; ++handle) RecordRemovedHandle(state, handle);
  const MAutoLock lock(state.PoolLock);
  EXPECT_EQ(state.RemovedHandles.size(), 100U);
  EXPECT_EQ(state.RemovedHandles.front(), 2U);
  EXPECT_EQ(state.RemovedHandles.back(), 101U);
}

TEST(CommandBaseName, IsTheFirstWordWithoutDirectoryAndSuffix) {
  const std::pair<const char*, const char*> cases[] = {
      {"solve", "solve"},
      {" \t/opt/bin/solve.exe -n 3", "solve"},
      {"C:\\bin\\solve.v2.exe x", "solve"},
      {"\"C:\\the bin\\solve.exe\" x", "solve"},  // blanks inside quotes do not end the word
      {"\"solve me\" x", "\"solve me\""},         // a quote goes only with the directory behind it
      {"\"solve  \n", "\"solve"},                 // white space at the end goes first
      {"dir.d/solve", "solve"},
      {".hidden", ""},
      {"dir/", ""},
      {"", ""},
      {" \f\v\r\n", ""},
  };
  for (const auto& [command, name] : cases) EXPECT_EQ(CommandBaseName(command), name) << command;
}

}  // namespace
}  // namespace tlm
