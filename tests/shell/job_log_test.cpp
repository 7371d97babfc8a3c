// The job log where disks end. What is told in it: tests/tlmctl/server_log_test.cpp.
#include "store/job_log.h"

#include <csignal>
#include <sys/resource.h>

#include "support/job_client.h"

namespace tlm::test {
namespace {
TEST(JobLog, ThatCannotBeWrittenHarmsNoJob) {
  const ServerProcess server(Environment{{"TSQOR_JOB_LOG", "/dev/full"}});
  EXPECT_EQ(JobClient(server.Port()).OutputOf("do 'echo good'", server.Root().Root()), "good\n");
  constexpr char kTold[] = "Couldn't write to the job log /dev/full: ";
  EXPECT_THAT(server.Output(), HasSubstr(kTold));
  EXPECT_EQ(server.Output().find(kTold), server.Output().rfind(kTold));
}

TEST(JobLog, GoesOnBehindALineThatADiskTookInPart) {
  std::signal(SIGXFSZ, SIG_IGN);
  const Sandbox disk;
  JobLog log;
  log.Start(disk / "log", 1 << 20, 20317);
  rlimit former;
  getrlimit(RLIMIT_FSIZE, &former);
  const rlimit full{std::filesystem::file_size(disk / "log") + 20, former.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  for (int i = 0; i < 3; ++i) log.Record({});
  setrlimit(RLIMIT_FSIZE, &former);
  for (int i = 0; i < 2; ++i) log.Record({});
  EXPECT_THAT(disk.Read("log"), ContainsRegex("\"start\"}\n.{20}\n\\{.*\"missing_before\":3}\n\\{.*\"unknown\"}\n$"));
}

TEST(JobLog, MakesRoomForWhatComes) {
  const Sandbox disk;
  JobLog log;
  log.Start(disk / "log", 20000, 20317);
  Job job;
  job.Command = std::string(1 << 20, 'x');
  for (; job.Handle < 6; ++job.Handle) log.Record(job);
  EXPECT_EQ(std::filesystem::file_size(disk / "log.1") / 4096, 4U) << "long texts are cut off";
  EXPECT_THAT(disk.Read("log.1"), ContainsRegex("\\{.*start\"}\n\\{.*\n\\{.*\n\\{.*\n\\{.*:3,.*}\n$"));
  EXPECT_THAT(disk.Read("log"), ContainsRegex("^\\{.*:4,.*}\n\\{.*:5,.*}\n$"));
}
}  // namespace
}  // namespace tlm::test
