// What a process says of its job, while it runs and by what it leaves behind, and what clients see of it.
#include "support/job_client.h"

namespace tlm::test {
namespace {
struct Reports : JobTest {
  Reports() : JobTest({{"TSQOR_TRACE", "1"}}) {}

  JobClient Process{Server.Port()};  // the connection of a job's process

  std::uint64_t AttachedPid(const std::string& name) {
    const auto pid = static_cast<std::uint64_t>(AwaitNumber(name));
    Process.AttachProcess(pid, "unused", "unused");
    return pid;
  }
};

TEST_F(Reports, CountFromItsAttachmentToItsEnd) {
  const std::uint64_t job = Submit(Do(Wait("pid") + "; echo 9 9 >qorjmmsg.$$; exit 1"));
  const std::uint64_t other = Submit(Do(Wait("other")));
  const auto pid = static_cast<std::uint64_t>(AwaitNumber("pid"));
  AwaitNumber("other");
  EXPECT_FALSE(Process.SetProgress(pid, 1)) << "has to attach first";
  EXPECT_EQ(Process.AttachProcess(pid, "x", "y"), job);
  EXPECT_EQ(Process.AttachProcess(pid | 1ULL << 32, "x", "y"), job) << "the low 32 bits count";
  EXPECT_EQ(Client.Await(job, {Running}).ExitCode, 0xFFFFFFFFU);

  Task task = Client.Get(job);
  EXPECT_FALSE(Client.GetJob(job, task)) << "nothing has changed";
  EXPECT_TRUE(Process.SetProgress(pid, 40));
  const std::uint64_t before = task.UpdateTimestamp;
  EXPECT_EQ(Client.Get(other).Status, kProgressNotice) << "whoever asks first, and for whatever job";
  EXPECT_TRUE(Client.GetJob(job, task));
  EXPECT_EQ(task.Status, std::uint32_t{Running});
  EXPECT_EQ(task.Progress, 40);
  EXPECT_EQ(task.UpdateTimestamp, before + 2) << "once for each connection";
  EXPECT_TRUE(Process.SetProgress(pid, 40));
  EXPECT_FALSE(Client.GetJob(job, task)) << "an unchanged value is no change";

  EXPECT_TRUE(Process.ResultsAvailable(pid));
  Process.RequiredLevel(pid, (std::uint64_t{1} << 32) + 5, 6);
  EXPECT_TRUE(Process.RequestRetry(pid));
  EXPECT_TRUE(Process.JobSucceeded(pid));
  EXPECT_TRUE(Client.GetJob(job, task));
  EXPECT_EQ(task.ResultFlags, kResultsAvailable);
  EXPECT_EQ(task.TaskType, (std::uint64_t{1} << 32) + 5);
  EXPECT_EQ(task.TaskLevel, 6U);
  Work.Write("stop");
  EXPECT_EQ(Client.Await(job, {Finished}).ExitCode, 1U) << "success was reported, the exit code says nothing";
  EXPECT_FALSE(Work.Has("qorjmmsg." + std::to_string(pid)));
  EXPECT_FALSE(Process.SetProgress(pid, 41));
}

TEST_F(Reports, DecideHowAJobEnds) {
  const struct {
    std::string Script;
    std::uint32_t Status, Flags;
    bool CompleteOnFailure = false;
  } cases[] = {
      {"echo 4 1 >qorjmmsg.$$; exit 3", Finished, 1},
      {"echo 3 4 >qorjmmsg.$$", Aborted, 0},  // a value is no code
      {"echo 4 1 >qorjmmsg.$$0", Aborted, 0},
      {"exit 0", Aborted, 0},
      {"exit 9", Finished, 1, true},
      {"echo 4 1 >qorjmmsg.$$; exit 255", LaunchFailed, 0, true},
  };
  HandleList handles;
  for (const auto& one : cases) {
    Submission job = NewJob("do \"" + one.Script + "\"");
    job.CompleteOnFailure = one.CompleteOnFailure;
    handles.push_back(Client.SubmitJob(job));
  }
  // By the process itself.
  const std::uint64_t again = Submit(Do(Wait("again"))), partly = Submit(Do(Wait("partly")));
  const std::uint64_t failed = Submit(Do(Wait("failed") + "; exit 255"));
  const std::uint64_t chain = Submit(Do(Wait("first")) + ";" + Do(Wait("second", "end")));
  const std::uint64_t pid = AttachedPid("again");
  EXPECT_TRUE(Process.JobSucceeded(pid));
  Process.AttachProcess(pid, "", "");  // what was reported before counts no more
  EXPECT_TRUE(Process.JobSucceeded(AttachedPid("failed")));
  EXPECT_TRUE(Process.ResultsAvailable(AttachedPid("partly")));
  const std::uint64_t first = AttachedPid("first");
  Work.Write("stop");
  AwaitNumber("second");
  EXPECT_FALSE(Process.JobSucceeded(first)) << "its command is over";
  Work.Write("end");

  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(Client.Await(handles[i], {cases[i].Status}).ResultFlags, cases[i].Flags) << cases[i].Script;
  }
  for (std::uint64_t handle : {again, partly, chain}) EXPECT_EQ(Client.AwaitEnd(handle).Status, std::uint32_t{Aborted});
  EXPECT_EQ(Client.Get(partly).ResultFlags, kResultsAvailable) << "survives";
  EXPECT_EQ(Client.AwaitEnd(failed).Status, std::uint32_t{LaunchFailed});
}

TEST_F(Reports, AlsoComeFromProcessesThatNobodyHereStarted) {
  const auto start = [this](const std::string& name, const std::string& text) {
    Work.WriteScript(name, text);
    platform::LaunchRequest request;
    request.CommandLine = Work / name;
    request.Directory = Work.Root();
    request.Environment = {"PATH=/usr/bin:/bin"};
    return platform::Process::Launch(request).value();
  };
  const platform::Process good = start("good", Wait("good.pid") + "; echo 4 1 >qorjmmsg.$$");
  const platform::Process bad = start("bad", Wait("bad.pid"));
  const platform::Process killed = start("killed", "while :; do sleep 0.1; done");
  HandleList handles;
  for (const platform::Process* process : {&good, &bad, &killed}) {
    const auto pid = static_cast<std::uint64_t>(process->Id());
    handles.push_back(Process.AttachProcess(pid, "\"C:\\the bin\\solve.exe\" -x", Work.Root()));
    EXPECT_EQ(Process.AttachProcess(pid, "again", ""), handles.back());
  }
  const Task task = Client.Get(handles[0]);
  EXPECT_EQ(task.Status, std::uint32_t{Running});
  EXPECT_EQ(task.AnalysisID, "solve");
  EXPECT_EQ(task.WorkDir, Work.Root());
  EXPECT_NE(task.Started, 0);
  EXPECT_EQ(Client.GetJobCount(), 3U) << "each holds a slot";
  EXPECT_TRUE(Client.RemoveJob(handles[2]));
  EXPECT_TRUE(killed.WaitForEnd(kPatience));
  Work.Write("stop");
  EXPECT_EQ(Client.AwaitEnd(handles[0]).Status, std::uint32_t{Finished});
  EXPECT_EQ(Client.Get(handles[0]).ResultFlags, kResultsAvailable);
  for (std::size_t i : {1U, 2U}) EXPECT_EQ(Client.AwaitEnd(handles[i]).Status, std::uint32_t{Aborted});
  const std::tuple<std::uint64_t, std::string, std::string> cases[] = {
      {0, " \t/opt/bin/solve.exe -n 3", "solve"},
      {0x7FFFFFFF, "C:\\bin\\solve.v2.exe x", "solve"},
      {~0ULL, "\"solve me\" x", "\"solve me\""},  // a quote goes only with the directory behind it
      {~1ULL, "dir.d/solve", "solve"},
      {~2ULL, "dir/", ""},
  };
  for (const auto& [noProcess, command, name] : cases) {
    const Task ended = Client.AwaitEnd(Process.AttachProcess(noProcess, command, ""));
    EXPECT_EQ(ended.Status, std::uint32_t{Aborted}) << noProcess;
    EXPECT_EQ(ended.AnalysisID, name) << command;
  }
  EXPECT_TRUE(Eventually([&] { return Client.GetJobCount() == 0; }));
}

TEST_F(Reports, OnOutputGoToTheOwnerWhoCanBeSucceededByItsHost) {
  auto owner = std::make_unique<JobClient>(Server.Port());
  const std::uint64_t job =
      owner->SubmitJob(NewJob(Do("echo one; " + Wait("pid") + "; echo two; " + Wait("x", "end"))));
  const std::uint64_t others = owner->SubmitJob(NewJob(Do(":")));
  AwaitNumber("pid");
  EXPECT_EQ(owner->Output(job), "one\n");
  EXPECT_EQ(Client.Output(job), "");
  for (std::uint64_t handle : {job, job, others, others, job}) EXPECT_FALSE(Client.TakeOwnership(handle));
  const std::string ports =
      std::to_string(Client.Get(job).ClientPort) + " not " + std::to_string(Client.Get(Submit(Do(":"))).ClientPort);
  const std::string printed = Server.Output(), line = "job1 owned by " + ports + "\n",
                    between = "job2 owned by " + ports;
  EXPECT_TRUE(printed.find(line) < printed.find(between) && printed.find(between) < printed.rfind(line)) << printed;
  EXPECT_EQ(printed.find(line, printed.find(line) + 1), printed.rfind(line)) << "once until another job is refused";
  EXPECT_EQ(printed.find(between), printed.rfind(between));
  owner.reset();
  JobClient stranger(Server.Port(), "elsewhere");
  EXPECT_FALSE(stranger.TakeOwnership(job));
  EXPECT_TRUE(Eventually([&] { return Client.TakeOwnership(job); }));
  EXPECT_EQ(Client.Output(job), "one\n");

  Client.SetListening(true);
  Client.WatchOutput(job, 4);
  Task task = Client.Get(job);
  Work.Write("stop");
  EXPECT_TRUE(Eventually([&] { return Client.GetJob(job, task); })) << "new output is a change";
  EXPECT_EQ(task.Status, std::uint32_t{Running});
  std::string text = "<";
  Client.ReadOutput(job, 4, text);
  EXPECT_EQ(text, "<two\n");
  Work.Write("end");
  Client.AwaitEnd(job);
}
}  // namespace
}  // namespace tlm::test
