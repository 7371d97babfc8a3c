// What a job's process sees, and how commands become processes.
#include <sys/resource.h>
#include <unistd.h>

#include "support/job_client.h"

namespace tlm::test {
namespace {
// Two bytes per character, low byte first.
std::string FailureText(const std::string& commandLine) {
  std::string wide;
  for (char c : "Couldn't execute " + commandLine + "\n") wide.append({c, '\0'});
  return wide;
}

struct Launch : JobTest {
  Launch() : JobTest({{"TSQOR_HOME_OF_OTHERS", "kept"}, {"TMP", "/nowhere"}}) {}
};

TEST_F(Launch, GivesAProcessItsDirectoryArgumentsEnvironmentAndOutput) {
  Server.AddProgram("show",
                    "pwd\nfor word; do echo \"<$word>\"; done\nprintf 'oops\\n' >&2\n"
                    "tr '\\0' '\\n' </proc/$$/environ >$1.env\ncat >stdin.txt\n"
                    "cut -d' ' -f5 /proc/$$/stat >$1.group; echo $$ >$1.pid\nexit 7\n");
  Submission job = NewJob("show \"two words\" x\\;y 'semi;colon' \"it's\"; do echo again");
  job.TaskKey = "key";
  job.ProcessID = std::int64_t{5} << 32;
  Work.Write(job.ResultStem + "_out", "of an earlier run\n");
  const std::uint64_t first = Client.SubmitJob(job);
  const std::uint64_t plain = Submit("show plain");

  EXPECT_EQ(Client.AwaitEnd(first).Status, std::uint32_t{Aborted});
  // Nothing is quoted again, so that a token with a blank falls apart.
  EXPECT_EQ(Client.Output(first), Work.Root() + "\n<two>\n<words>\n<x;y>\n<semi;colon>\n<it's>\noops\nagain\n");
  const std::string environment = Work.Read("two.env");
  EXPECT_TRUE(environment.starts_with(
      "TS_ENTERPRISE_ENV_PARENT_ID=21474836480\nTS_ENTERPRISE_ENV=key\nTSQOR_HOME=" + Server.Home().Root() + "\n"))
      << environment;
  EXPECT_EQ(environment.find("\nTSQOR_HOME="), environment.rfind("\nTSQOR_HOME=")) << "there once";
  EXPECT_THAT(environment, HasSubstr("\nTSQOR_HOME_OF_OTHERS=kept\n"));
  EXPECT_EQ(environment.find("\nTMP="), std::string::npos) << "the root did not come from it";
  EXPECT_EQ(Work.Read("stdin.txt"), "");
  EXPECT_EQ(Work.Read("two.group"), Work.Read("two.pid")) << "leads a group of its own";

  Client.AwaitEnd(plain);
  EXPECT_TRUE(Work.Read("plain.env").starts_with("TSQOR_HOME=")) << "no empty entries of the job";
  EXPECT_EQ(Client.Get(plain).ExitCode, 7U);
}

TEST_F(Launch, RunsTheCommandsOfAChainInOrderAndKeepsTheLastWord) {
  const std::uint64_t chain = Submit(Do("echo one; exit 3") + ";; ; " + Succeed("echo two; sleep 1.2") + " ;  ");
  const std::uint64_t failed = Submit("do exit 255"), recovered = Submit("do exit 255;" + Succeed(":"));
  const std::uint64_t signalled = Submit(Do("kill -TERM $$"));
  const Task task = Client.Await(chain, {Finished});
  EXPECT_EQ(task.ExitCode, 0U);
  EXPECT_EQ(task.ResultFlags, kResultsAvailable);
  EXPECT_GE(task.Elapsed, 1U);
  EXPECT_EQ(Client.Output(chain), "one\ntwo\n");
  EXPECT_EQ(Client.Await(failed, {LaunchFailed}).ExitCode, 255U);
  EXPECT_EQ(Client.Await(recovered, {Finished}).ExitCode, 0U) << "a 255 that is followed by a command leaves no trace";
  EXPECT_EQ(Client.AwaitEnd(signalled).ExitCode, 143U);
}

TEST_F(Launch, ClearsOlderResultsAwayUnlessTheyAreItsInput) {
  Submission kept = NewJob("do echo results");
  Submission cleared = NewJob("do echo nothing");
  cleared.InputStem = "other";
  for (const Submission& job : {kept, cleared}) {
    for (const char* suffix : {".in", ".dat", ".crc", ".rfn"}) Work.Write(job.ResultStem + suffix, "old");
    Client.AwaitEnd(Client.SubmitJob(job));
  }
  for (const std::string suffix : {".in", ".dat", ".crc", ".rfn"}) {
    EXPECT_TRUE(Work.Has(kept.ResultStem + suffix)) << suffix;
    EXPECT_EQ(Work.Has(cleared.ResultStem + suffix), suffix == ".in" || suffix == ".rfn") << suffix;
  }
}

TEST_F(Launch, AppliesThePriorityThatTheJobHasWhenItStartsAndLaterOnes) {
  const auto niceOf = [](std::int32_t pid) { return getpriority(PRIO_PROCESS, static_cast<id_t>(pid)); };
  EXPECT_EQ(Client.GetDefaultPriority(), 1U);
  const std::uint64_t idle = Submit(Do(Wait("idle")));
  EXPECT_TRUE(Client.SetDefaultPriority(2));
  const std::uint64_t normal = Submit(Do(Wait("normal")));
  const std::int32_t idlePid = AwaitNumber("idle"), normalPid = AwaitNumber("normal");
  EXPECT_TRUE(Eventually([&] { return niceOf(idlePid) == 19; }));
  EXPECT_EQ(Client.Get(idle).Priority, 1U);
  // A user who may not raise a priority stays at that of the server, which need not be the normal one.
  const int normalNice = geteuid() == 0 ? 0 : std::max(0, niceOf(Server.Pid()));
  EXPECT_TRUE(Eventually([&] { return niceOf(normalPid) == normalNice; }));
  EXPECT_TRUE(Client.SetJobPriority(normal, 9)) << "names no class, but is stored";
  EXPECT_EQ(Client.Get(normal).Priority, 9U);
  EXPECT_NE(niceOf(normalPid), 19);
  EXPECT_TRUE(Client.SetJobPriority(normal, 0));
  EXPECT_EQ(niceOf(normalPid), 19);
  EXPECT_FALSE(Client.SetJobPriority(444, 0));
  Work.Write("stop");
  Client.AwaitEnd(normal);
}

TEST_F(Launch, ThatFailsIsToldInTheOutputAndFailsTheJobAlone) {
  const std::string bin = Server.Home().Path("bin/");
  Server.Home().Write("bin/plain", "#!/bin/sh\n");
  Server.AddProgram("no_format", "");
  Server.Home().Write("bin/no_format", "neither script nor binary");
  const HandleList unfit{Submit("plain"), Submit("no_format"), Submit(" ; ;\t'' \"\" ;")};
  const std::uint64_t missing = Submit("missing \"a b\"; do echo never");
  const std::uint64_t open = Submit("do echo before; do 'never closed");
  const std::uint64_t homeless = Client.SubmitJob(JobIn(Work / "missing", "do :"));
  const std::uint64_t huge = Submit("do " + std::string(1 << 20, 'x'));

  for (std::uint64_t handle : {unfit[0], unfit[1], unfit[2], missing, homeless, huge}) {
    const Task task = Client.Await(handle, {LaunchFailed});
    EXPECT_EQ(task.ExitCode, 0U);
    EXPECT_EQ(task.Elapsed, 0U);
  }
  EXPECT_EQ(Client.Output(missing), FailureText(bin + "missing a b "));
  EXPECT_EQ(Client.Output(huge).size(), FailureText(bin + "do " + std::string(1 << 20, 'x') + " ").size());
  EXPECT_EQ(Client.Await(open, {LaunchFailed}).ExitCode, 0U);
  EXPECT_THAT(Client.Output(open), StartsWith("before\n"));
  EXPECT_TRUE(Eventually([&] { return Client.GetJobCount() == 0; })) << "all slots are given back";
}

TEST_F(Launch, UsesTheEnvironmentOfTheMomentAndTheInstallPathOfTheSubmission) {
  Client.SetEnvironment({{"FRESH", "one"}, {"FRESH", "two"}, {"TSQOR_HOME_OF_OTHERS", ""}, {"", "x"}, {"A=B", "x"}});
  const std::uint64_t handle =
      Submit(Do("echo $FRESH $TSQOR_HOME_OF_OTHERS; " + Wait("pid")) + ";" + Do("echo $FRESH"));
  AwaitNumber("pid");
  Client.SetEnvironment({{"FRESH", "three"}});
  Work.Write("stop");
  Client.AwaitEnd(handle);
  EXPECT_EQ(Client.Output(handle), "two\nthree\n") << "also for the next command of a running job";
}

TEST_F(JobTest, WhatAJobPutsInThePlaceOfItsFilesHoldsNobodyUp) {
  Client.SetListening(true);
  const std::uint64_t pipe = Submit(Do("rm job1_out; mkfifo job1_out") + "; " + Succeed(":"));
  Client.Await(pipe, {Finished});
  const std::uint64_t device = Submit(Do("ln -sf /dev/zero job2_out; " + Wait("device")));
  const std::uint64_t event = Submit(Do(": >/dev/shm/sem.tlm2010_$$; " + Wait("event")));
  AwaitNumber("device");
  const std::int32_t pid = AwaitNumber("event");
  Client.WatchOutput(device, 0);
  EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Client.RemoveJob(event)); }), std::chrono::seconds(5));
  EXPECT_TRUE(IsGone(pid));
  EXPECT_TRUE(Client.RemoveJob(device));
}
}  // namespace
}  // namespace tlm::test
