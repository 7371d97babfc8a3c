// Programs made with the job kit, in each of its languages: as jobs behind a script, and by hand.
#include "platform/environment.h"
#include "platform/host.h"
#include "report/reporter.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
const Environment kTools{{"PATH", BIN_DIRECTORY ":/usr/bin:/bin"},
                         {"PYTHONPATH", SOURCE_DIRECTORY "/src/tlmjob"},
                         {"PYTHONDONTWRITEBYTECODE", "1"}};

struct Kit : JobTest {
  Kit() : JobTest(kTools) {
    Client.SetDefaultPriority(2);  // programs that are asked to end have to come to it
    const std::string bin = Server.Home() / "bin/";
    std::filesystem::create_symlink(SOURCE_DIRECTORY "/examples/python/pendulum.py", bin + "pendulum");
    std::filesystem::create_symlink(SOURCE_DIRECTORY "/examples/shell/primes.sh", bin + "primes");
  }
  std::uint64_t SubmitExample(const std::string& program, const std::string& deck) {
    Work.Write(program + ".inp", deck);
    Submission job = NewJob(program + " " + program + ".inp");
    job.ResultStem = job.InputStem = program;
    return Client.SubmitJob(job);
  }
  // Ends the job, and expects that it does so itself, in time and with its own code.
  void ExpectStop(std::uint64_t job) {
    EXPECT_LT(TimeOf([&] { Client.RemoveJob(job); }), std::chrono::seconds(8));
    EXPECT_EQ(Client.Await(job, {Aborted}).ExitCode, 3U) << Client.Output(job);
  }
  testing::AssertionResult EventuallyHasProgress(std::uint64_t job, int least) {
    return Eventually([&] { return Client.Get(job).Progress >= least; });
  }
  ProgramEnd RunByHand(const Words& words) const {
    Environment environment = kTools;
    environment["TSQOR_JMPORT"] = std::to_string(Server.Port());
    environment["TS_ENTERPRISE_ENV"] = "of a shell that a job has left behind";
    return RunProgram(Words{"/usr/bin/env", "-C", Work.Root()} + words, environment);
  }
};

struct KitLanguage : Kit, ::testing::WithParamInterface<const char*> {};

TEST_P(KitLanguage, ReportsFromBehindAScriptAndEndsOnRequest) {
  const std::uint64_t job = Submit(Do(std::string("ORPC_TRACE=2 ") + GetParam() + "; exit $?"));
  const std::uint64_t stopped = Submit(Do(std::string("cd /; ") + GetParam() + "; exit $?"));
  Client.Await(job, {Running});
  for (const std::uint64_t one : {job, stopped}) {
    EXPECT_TRUE(Eventually([&] { return Client.Get(one).ResultFlags == kResultsAvailable; }));
    EXPECT_EQ(Client.Get(one).Progress, 40);
    EXPECT_EQ(Client.Get(one).TaskType, 7U);
    EXPECT_EQ(Client.Get(one).TaskLevel, 8U);
  }
  ExpectStop(stopped);
  EXPECT_THAT(Client.Output(stopped), HasSubstr("stopped"));
  Work.Write("go");
  EXPECT_EQ(Client.AwaitEnd(job).Status, std::uint32_t{Finished}) << Client.Output(job);
  EXPECT_EQ(Client.Get(job).Progress, 100) << "the end of the program has waited for it";
  EXPECT_EQ(Client.Output(job), "");
  EXPECT_EQ(Client.Jobs().size(), 2U);
}

TEST_P(KitLanguage, ReportsWhenItsScriptHasLetItGo) {
  Submission submission =
      NewJob(Do("( (until test -e pid; do sleep 0.1; done; " + std::string(GetParam()) + ") & ); " + Wait("pid")));
  submission.TaskKey = "key";
  const std::uint64_t job = Client.SubmitJob(submission);
  EXPECT_TRUE(EventuallyHasProgress(job, 40));
  Work.Write("go");
  EXPECT_TRUE(EventuallyHasProgress(job, 100));
  Work.Write("stop");
  EXPECT_EQ(Client.AwaitEnd(job).Status, std::uint32_t{Finished}) << Client.Output(job);
}

TEST_P(KitLanguage, IsQuietByHandAndGoesOnWithoutAJobManager) {
  Work.Write("go");
  std::filesystem::create_symlink("/bin/sh", Work / "nottlmjm");
  EXPECT_THAT(RunByHand({Work / "nottlmjm", "-c", GetParam() + std::string("; exit $?")}), Ends(0, ""));
  EXPECT_EQ(Client.Jobs(), HandleList());
  const std::uint64_t job =
      Submit(Do("TSQOR_JMPORT=" + std::to_string(FreePort()) + " " + GetParam() + " && echo good"));
  EXPECT_EQ(Client.AwaitEnd(job).Status, std::uint32_t{Aborted});
  EXPECT_THAT(Client.Output(job), MatchesRegex("kit_[a-z_.]+: no job manager to report to, going on without\ngood\n"));
}

TEST(KitReports, AwaitASilentJobManagerNoLongerThanTheirPatience) {
  const RawListener silent;
  const std::string port = std::to_string(silent.Port());
  platform::SetVariable("TSQOR_JMPORT", port);
  report::Reporter reporter(platform::ProcessId(), report::Opening::Attach, std::nullopt,
                            std::chrono::milliseconds(300));
  EXPECT_FALSE(reporter.Deliver({.Succeeded = true}));
  EXPECT_FALSE(reporter.Finish());
  Environment tools = kTools;
  tools["TSQOR_JMPORT"] = port;
  const auto python = RunProgram({"/usr/bin/env", "python3", "-c",
                                  "import os, tlmjob; tlmjob._PATIENCE = 0.3\n"
                                  "tlmjob._own_job = lambda: (os.getpid(), 0)\n"
                                  "tlmjob.attach(); tlmjob.succeeded(); tlmjob.detach(); print('good')"},
                                 tools);
  EXPECT_EQ(python.Output, "-c: no job manager to report to, going on without\ngood\n");
}

INSTANTIATE_TEST_SUITE_P(Of, KitLanguage, ::testing::Values(KIT_PROGRAMS));

// -- the examples
TEST_F(Kit, ThePendulumSwingsInTheExactPeriodAndStopsOnRequest) {
  const std::string deck = "length 2\nangle 120 # far\nsteps 400\nswings ";
  EXPECT_EQ(Client.AwaitEnd(SubmitExample("pendulum", deck + "20\n")).Status, std::uint32_t{Finished});
  EXPECT_THAT(Work.Read("pendulum.dat"), HasSubstr("period found   3.895536 s\nperiod, exact  3.895536 s\n"));
  EXPECT_THAT(Work.Read("pendulum.csv"), HasSubstr("t,angle,speed\n"));
  const std::uint64_t job = SubmitExample("pendulum", deck + "20000\n");
  EXPECT_TRUE(EventuallyHasProgress(job, 1));
  ExpectStop(job);
  EXPECT_EQ(RunByHand({"python3", SOURCE_DIRECTORY "/examples/python/pendulum.py", Work.Write("bad.inp", "angle x")})
                .ExitCode,
            1);
}

TEST_F(Kit, TheScriptCountsPrimesAndStopsOnRequest) {
  const std::uint64_t good = SubmitExample("primes", "100000\n");
  EXPECT_EQ(Client.AwaitEnd(good).Status, std::uint32_t{Finished}) << Client.Output(good);
  EXPECT_EQ(Client.Get(good).Progress, 100);
  EXPECT_THAT(Work.Read("primes.dat"), HasSubstr("\n100000 9592\n"));
  const std::uint64_t job = SubmitExample("primes", "1000000\n");
  EXPECT_TRUE(EventuallyHasProgress(job, 10));
  ExpectStop(job);
  EXPECT_THAT(RunByHand({SOURCE_DIRECTORY "/examples/shell/primes.sh", Work.Write("few.txt", "0100")}), Ends(0, ""));
  EXPECT_THAT(Work.Read("few.dat"), HasSubstr("\n100 25\n"));
  EXPECT_EQ(Client.Jobs(), HandleList({good, job}));
}

TEST_F(Kit, ASuccessStaysUntilTheNextAttachment) {
  const struct {
    std::string Reports;
    std::uint32_t Status, Flags;
    int Progress;
  } cases[] = {
      {"succeeded", Finished, 1, 0},
      {"progress 07.9 && tlmctl report succeeded", Finished, 1, 7},
      {"progress 7; tlmctl report progress -1 && tlmctl report succeeded", Finished, 1, 0},
      {"succeeded; tlmctl report progress 101", Finished, 1, 100},
      {"attach; tlmctl report results", Aborted, 1, 0},
      {"succeeded; tlmctl report attach; tlmctl report retry", Aborted, 0, 0},
  };
  HandleList jobs;
  for (const auto& one : cases) jobs.push_back(Submit(Do("tlmctl report " + one.Reports)));
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const Task task = Client.AwaitEnd(jobs[i]);
    EXPECT_EQ(task.Status, cases[i].Status) << cases[i].Reports;
    EXPECT_EQ(task.ResultFlags, cases[i].Flags) << cases[i].Reports;
    EXPECT_EQ(task.Progress, cases[i].Progress) << cases[i].Reports;
  }
  EXPECT_EQ(RunByHand({BIN_DIRECTORY "/tlmctl", "report", "progress"}).ExitCode, 64);
}
}  // namespace
}  // namespace tlm::test
