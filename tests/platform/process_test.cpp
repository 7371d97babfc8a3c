// Starting real programs, what they are given, following them to their end, and asking them for it.
#include "platform/process.h"

#include <csignal>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "platform/limits.h"
#include "platform/stop_event.h"
#include "support/eventually.h"
#include "support/sandbox.h"

namespace tlm::platform {
namespace {
using namespace std::chrono_literals;
using test::kPatience;

struct ProcessTest : ::testing::Test {
  ProcessTest() {
    Request.Directory = Disk.Root();
    Request.OutputFile = Disk.Path("out");
    Request.FailureText = "not started\n";
  }

  std::optional<Process> Launch(const std::string& line) {
    Request.CommandLine = line;
    return Process::Launch(Request);
  }
  std::optional<Process> Shell(const std::string& script) { return Launch("/bin/sh -c \"" + script + "\" "); }
  static std::optional<std::uint32_t> CodeAtEnd(std::optional<Process> process) {
    return process && process->WaitForEnd(kPatience) ? process->ExitCode() : std::nullopt;
  }
  std::string OutputOf(const std::string& line) {
    Disk.Write("out", "");
    EXPECT_EQ(CodeAtEnd(Launch(line)), 0U) << line;
    return Disk.Read("out");
  }
  // The process whose id is the output, once it is there.
  std::optional<Process> Grandchild() const {
    EXPECT_TRUE(test::Eventually([this] { return Disk.Read("out").ends_with('\n'); }));
    return Process::Open(std::atoi(Disk.Read("out").c_str()));
  }

  test::Sandbox Disk;
  LaunchRequest Request;
};

TEST_F(ProcessTest, WithoutAnOutputFileTheStreamsAreThoseOfItsStarter) {
  Request.OutputFile = Disk.Root();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(CodeAtEnd(Shell("echo out; echo error >&2")), 0U);
  EXPECT_FALSE(Launch(Disk.Path("missing")));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "out\nerror\nnot started\n");
}

TEST_F(ProcessTest, NeitherDescriptorsNorSignalsNorLimitsAreInherited) {
  const int inheritable = dup(STDERR_FILENO);
  EXPECT_EQ(OutputOf("/bin/sh -c \"ls /proc/$$/fd; :\""), "0\n1\n2\n");
  close(inheritable);

  sigset_t blocked, former;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, &former);
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(OutputOf("/bin/grep -E \"^Sig(Blk|Ign)\" /proc/self/status"),
            "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
  std::signal(SIGPIPE, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);

  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max - 1;
  setrlimit(RLIMIT_NOFILE, &limit);
  RaiseDescriptorLimit();
  EXPECT_EQ(CodeAtEnd(Shell("until [ $(ulimit -Sn) = " + std::to_string(limit.rlim_cur) + " ]; do :; done")), 0U);
}

TEST_F(ProcessTest, TheLineNamesTheProgramAndItsArguments) {
  EXPECT_EQ(OutputOf("/usr/bin/printf \"[%s]\" a\"b  c\"d \"\"  e\t\"f "), "[ab  cd][][e][f ]");

  Disk.MakeDirectory("a  dir/my");
  Disk.WriteScript("a  dir/my prog", "echo \"long <$1>\"");
  EXPECT_EQ(OutputOf(Disk.Path("a  dir/my prog x ")), "long <x>\n");
  std::filesystem::remove(Disk.Path("a  dir/my"));
  Disk.WriteScript("a  dir/my", "echo \"short <$1>\"");
  EXPECT_EQ(OutputOf(Disk.Path("a  dir/my prog x")), "short <prog>\n");
}

TEST_F(ProcessTest, ExitCodesAreToldAgainAndAgain) {
  // Left as it is, this makes the system throw the exit codes away.
  std::signal(SIGCHLD, SIG_IGN);
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"exit 0", 0}, {"exit 255", 255}, {"kill -TERM $$", 128 + 15}, {"kill -KILL $$", 128 + 9}};
  for (const auto& [script, code] : cases) {
    std::optional<Process> process = Shell(script);
    ASSERT_TRUE(process && process->WaitForEnd(kPatience)) << script;
    for (int again = 0; again < 2; ++again) EXPECT_EQ(process->ExitCode(), code) << script;
    EXPECT_FALSE(Process::Open(process->Id())) << "left in the process table";
  }
  std::optional<Process> process = Shell("sleep 300 & echo $!; exit 3");
  ASSERT_TRUE(process && process->WaitForEnd(kPatience));
  std::optional<Process> grandchild = Grandchild();
  process->Terminate();
  EXPECT_EQ(CodeAtEnd(std::move(grandchild)), kUnknownExitCode) << "the group of an ended program is ended";
  EXPECT_EQ(process->ExitCode(), 3U);
}

TEST_F(ProcessTest, PriorityAndTerminationReachTheGroupThatTheProgramLeads) {
  for (const bool own : {true, false}) {
    Disk.Write("out", "");
    Request.OwnGroup = own;
    std::optional<Process> process = Shell("sleep 300 & echo $!; wait");
    std::optional<Process> grandchild = Grandchild();
    ASSERT_TRUE(process && grandchild);
    EXPECT_FALSE(process->WaitForEnd(1ms));
    EXPECT_EQ(process->ExitCode(), std::nullopt);
    EXPECT_EQ(getpgid(process->Id()), own ? process->Id() : getpgrp());

    const auto nice = [](std::int32_t id) { return getpriority(PRIO_PROCESS, static_cast<id_t>(id)); };
    process->SetPriority(1);
    EXPECT_EQ(nice(process->Id()), 19);
    EXPECT_EQ(nice(grandchild->Id()), own ? 19 : nice(0));

    process->Terminate();
    EXPECT_EQ(CodeAtEnd(std::move(process)), 0U);
    if (!own) grandchild->Terminate();
    EXPECT_EQ(CodeAtEnd(std::move(grandchild)), kUnknownExitCode);
  }
}

TEST(StopEvent, IsSetByItsNameAndTakesThePlaceOfOneThatWasLeftBehind) {
  const auto start = StopEventTime();
  const std::string name = "stop_event_test_" + std::to_string(getpid());
  EXPECT_FALSE(SetStopEvent(name)) << "nobody has made it";
  {
    std::optional<StopEvent> event = StopEvent::Create(name);
    const std::jthread setter([&] { EXPECT_TRUE(SetStopEvent(name)); });
    EXPECT_TRUE(event->WaitFor(std::chrono::seconds(60)));
    std::optional<StopEvent> successor = StopEvent::Create(name);
    EXPECT_FALSE(successor->IsSet());
    StopEvent moved = std::move(*successor);
    RemoveStopEventBefore(name, start);
    EXPECT_TRUE(SetStopEvent(name) && moved.IsSet()) << "keeps its name";
    std::filesystem::last_write_time("/dev/shm/sem." + name, std::filesystem::file_time_type::clock::now() - 1h);
    RemoveStopEventBefore(name, start);
    EXPECT_FALSE(SetStopEvent(name)) << "that of an earlier process";
  }
  EXPECT_FALSE(SetStopEvent(name)) << "the name goes with the event";
}
}  // namespace
}  // namespace tlm::platform
