// Jobs that end before their time: removed by a client, or with the server.
#include "support/job_client.h"

namespace tlm::test {
namespace {
using std::chrono::seconds;

struct Ending : JobTest {
  explicit Ending(const Environment& environment = {}) : JobTest(environment) {
    std::filesystem::create_symlink(BIN_DIRECTORY "/stop_event_program", Server.Home().Path("bin/polite"));
  }

  static bool HasEvent(std::int32_t pid) {
    return std::filesystem::exists("/dev/shm/sem.tlm2010_" + std::to_string(pid));
  }
};

struct Overdue : Ending {
  Overdue() : Ending({{"TSQOR_LONGEST_RUN", "1"}}) {}
};

TEST_F(Overdue, JobsAreEndedWithAWordInTheirOutput) {
  const std::uint64_t job = Submit(Do("echo begun; echo $$ >pid; exec sleep 600") + ";" + Do("touch never"));
  Client.Await(job, {Aborted});
  EXPECT_EQ(Client.Output(job), "begun\n\nEnded after 1 seconds, the longest time that a job may take\n");
  EXPECT_TRUE(IsGone(AwaitNumber("pid")));
  EXPECT_FALSE(Work.Has("never"));
  Submission submission = NewJob(Do("exec sleep 600"));
  submission.CompleteOnFailure = true;
  Client.Await(Client.SubmitJob(submission), {Aborted});
  Client.Await(Submit(Succeed(":")), {Finished});
}

struct LogDirectory {
  Sandbox Logs;
};
struct LoggedEnding : LogDirectory, Ending {
  LoggedEnding() : Ending({{"TSQOR_JOB_LOG", Logs / "jobs"}}) {}
};

TEST_F(LoggedEnding, OfTheServerBetweenTwoCommandsOfAJobCompletesItNot) {
  Submit(Do("echo $$ >first; exec sleep 600") + ";" + Do("touch never"));
  const std::int32_t first = AwaitNumber("first");
  kill(Server.Pid(), SIGSTOP);
  kill(first, SIGTERM);
  RawConnection(Server.Port()).Send(Record(Call(17)));
  kill(Server.Pid(), SIGCONT);
  EXPECT_EQ(Server.AwaitEnd(), 0);
  EXPECT_FALSE(Work.Has("never"));
  for (const char* status : {"finished", "aborted", "launch"}) {
    EXPECT_EQ(Logs.Read("jobs").find(status), std::string::npos) << Logs.Read("jobs");
  }
}

TEST_F(Ending, OfARemovedJobDependsOnHowFarItCame) {
  const std::uint64_t running =
      Submit(Do("(echo $$; exec sleep 600) >group & echo $! >grandchild; echo $$ >child; wait"));
  const std::uint64_t chain = Submit(Do("echo $$ >chain; sleep 600") + ";" + Do("touch never"));
  const std::uint64_t open = Submit(Do("echo $$ >open; sleep 600") + "; do 'never closed");
  const std::uint64_t queued = SubmitQueued(Do(":")), failed = Submit(Do(":")), finished = Submit(Succeed(":"));
  const std::int32_t processes[] = {AwaitNumber("child"), AwaitNumber("grandchild"), AwaitNumber("chain"),
                                    AwaitNumber("open")};
  Client.Await(finished, {Finished});
  Client.Await(failed, {Aborted});

  const HandleList all{running, running, chain, open, queued, failed, finished};
  const auto removeAll = [&] { std::ranges::for_each(all, [&](auto job) { EXPECT_TRUE(Client.RemoveJob(job)); }); };
  EXPECT_LT(TimeOf(removeAll), seconds(5)) << "without an event there is no wait";
  EXPECT_FALSE(Client.RemoveJob(finished)) << "it has gone";
  for (std::int32_t pid : processes) EXPECT_TRUE(IsGone(pid));
  for (std::uint64_t handle : {running, chain, open, queued, failed}) {
    EXPECT_EQ(Client.Await(handle, {Aborted}).ExitCode, 0U) << "terminated";
  }
  EXPECT_FALSE(Work.Has("never")) << "nothing of a chain is started behind a kill";
  HandleList removed, lastOnes;
  Client.ListRemovedJobs(removed);
  EXPECT_EQ(removed, all);
  EXPECT_THAT(Client.Jobs(), ElementsAre(running, chain, open, queued, failed)) << "these wait to be released";
  EXPECT_EQ(Client.GetJobCount(), 0U);
  for (int i = 0; i < 100; ++i) Client.RemoveJob(queued);
  Client.ListRemovedJobs(lastOnes);
  EXPECT_EQ(lastOnes, HandleList(100, queued));
}

TEST_F(Ending, IsAskedForByAnEventBeforeItIsForced) {
  const std::uint64_t obedient = Submit("polite obey obedient"), stubborn = Submit("polite ignore stubborn");
  const std::int32_t first = AwaitNumber("obedient"), second = AwaitNumber("stubborn");
  EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Client.RemoveJob(obedient)); }), seconds(5));
  EXPECT_TRUE(IsGone(first));
  Client.AwaitEnd(obedient);
  EXPECT_EQ(Client.Output(obedient), "stopped\n");
  const auto time = TimeOf([&] { EXPECT_TRUE(Client.RemoveJob(stubborn)); });
  EXPECT_GE(time, seconds(9));
  EXPECT_LT(time, seconds(20));
  EXPECT_TRUE(IsGone(second));
  EXPECT_EQ(Client.AwaitEnd(stubborn).Status, std::uint32_t{Aborted});
  EXPECT_FALSE(HasEvent(second)) << "nothing is left of the event of a process that could not tidy up";
}

struct EndingWithoutEvents : Ending {
  EndingWithoutEvents() : Ending({{"TSQOR_DONT_KILL_VIA_SIGNALS", "1"}}) {}
};

TEST_F(EndingWithoutEvents, IsForcedAtOnce) {
  const std::uint64_t job = Submit("polite obey pid");
  const std::int32_t pid = AwaitNumber("pid");
  EXPECT_TRUE(HasEvent(pid));
  EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Client.RemoveJob(job)); }), seconds(5));
  EXPECT_TRUE(IsGone(pid));
  Client.AwaitEnd(job);
  EXPECT_EQ(Client.Output(job), "") << "it had no chance to use its event";
}

TEST_F(Ending, OfTheServerLeavesNoProcessBehindAndWaitsForAllSideBySide) {
  for (const char* name : {"a", "b", "c"}) Submit(std::string("polite ignore ") + name);
  Submit("polite obey d");
  Submit(Do("sleep 600 & echo $! >e; echo $$ >f; wait"));
  const std::uint64_t chain = Submit(Do("echo $$ >g; sleep 600") + ";" + Do("touch never"));
  SubmitQueued(Do("touch never"));
  std::vector<std::int32_t> processes;
  for (const char* name : {"a", "b", "c", "d", "e", "f", "g"}) processes.push_back(AwaitNumber(name));
  const std::uint64_t released = Submit(Do("echo $$ >h; sleep 600"));
  processes.push_back(AwaitNumber("h"));
  // Its process speaks through a connection of its own, so the jobs submitted there are failed with it, one by one.
  Submit(Do(Wait("leader")));
  JobClient leader(Server.Port());
  EXPECT_NE(leader.AttachProcess(static_cast<std::uint64_t>(AwaitNumber("leader")), "do", Work.Root()), 0U);
  for (const char* name : {"i", "j", "k"}) {
    leader.SubmitJob(NewJob(std::string("polite ignore ") + name));
    processes.push_back(AwaitNumber(name));
  }
  Client.ReleaseJob(released);
  Client.Get(released);
  EXPECT_EQ(Client.Get(released).Status, 0U);
  EXPECT_EQ(Client.Get(chain).Status, std::uint32_t{Running});

  Work.Write("stop");
  EXPECT_TRUE(IsGone(AwaitNumber("leader")));
  EXPECT_LT(TimeOf([&] { EXPECT_EQ(Server.Stop(), 0); }), seconds(15));
  for (std::int32_t pid : processes) EXPECT_TRUE(IsGone(pid)) << pid;
  EXPECT_FALSE(Work.Has("never"));
}

TEST_F(Ending, OfAProcessWhoseJobWasReleasedGivesItsSlotBack) {
  // The job leaves the table while its process runs; a queue of limit one waits behind it.
  EXPECT_TRUE(Client.SetQueueLimit(1));
  EXPECT_TRUE(Client.StartQueue(0));
  const std::uint64_t released = SubmitQueued(Do(Wait("pid") + "; echo end >end"));
  const std::int32_t pid = AwaitNumber("pid");
  const std::uint64_t next = SubmitQueued(Succeed("test -e end && echo behind"));
  Client.ReleaseJob(released);
  Client.Await(released, {Running});
  EXPECT_THAT(Client.Jobs(), ElementsAre(next));
  EXPECT_FALSE(Client.RemoveJob(released));
  EXPECT_EQ(Client.GetJobCount(), 1U) << "its slot is still taken";
  EXPECT_FALSE(platform::Process::Open(pid)->WaitForEnd(std::chrono::milliseconds(0)));
  Work.Write("stop");
  Client.Await(next, {Finished});
  EXPECT_EQ(Client.Output(next), "behind\n");
  EXPECT_TRUE(Eventually([&] { return Client.GetJobCount() == 0; }));
}
}  // namespace
}  // namespace tlm::test
