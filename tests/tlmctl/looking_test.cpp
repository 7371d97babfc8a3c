// Looking at jobs: list, show, why, watch, output, wait, cancel, history and last.
#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
enum { kUsage = 64, kLost = 75, kRefused = 77, kAborted = 120, kLaunchFailed = 121, kTimedOut = 124 };

struct Looking : Tlmctl {
  JobClient client{server.Port(), "desk"};

  ProgramEnd Desk(const Words& words) const { return Ctl(Words{"--client-host", "desk"} + words); }
  // Each with a stem, and so an output, of its own. Gives the handle.
  std::string Submit(const Words& command, const Words& options = {}) {
    const std::string stem = "job" + std::to_string(++submitted_);
    const std::string handle = Desk(Words{"submit", "-q", "--stem", stem} + options + Words{"--"} + command).Output;
    return handle.substr(0, handle.find('\n'));
  }
  std::string SubmitWaiter(const Words& options = {}) {
    if (!disk.Has("wait")) AddWaiter();
    return Submit({"waiter"}, options);
  }
  Submission Plain(const std::string& command) const { return JobIn(disk.Root(), command); }
  // Comes back once the client has found its job and asks for it again and again.
  std::future<ProgramEnd> Following(const Proxy& proxy, const Words& words) const {
    constexpr std::uint64_t kSomePolls = 1000;  // bytes
    const std::uint64_t before = proxy.BytesFromClient();
    auto end = CtlMeanwhile(Through(proxy, words));
    EXPECT_TRUE(Eventually([&] { return proxy.BytesFromClient() > before + kSomePolls; }));
    return end;
  }
  // A document without what is different each time.
  std::string Golden(const Words& words) const {
    std::string text = Desk(words).Output;
    for (const char* field : {"id", "submitted", "started", "elapsed_seconds", "changes", "server", "ended"}) {
      const std::string label = '"' + std::string(field) + "\":";
      for (std::size_t at = 0; (at = text.find(label, at)) != std::string::npos;) {
        at += label.size();
        text.replace(at, text.find_first_of(",}", at) - at, "*");
      }
    }
    return text;
  }

 private:
  int submitted_ = 0;
};

TEST_F(Looking, TellsProgramsAllThatIsKnown) {
  Submit({"do", "exit 3"}, {"--complete-on-failure", "--note", "for Ann"});
  EXPECT_EQ(Ctl({"wait", "last"}).ExitCode, 3);
  const std::string job =
      R"("handle":4,"id":*,"name":"job1","status":"finished","progress":0,"exit_code":3,"results":"available",)"
      R"("submitted":*,"started":*,"elapsed_seconds":*,"command":"do '\"exit 3\"'","directory":")" +
      disk.Root() +
      R"(/","input_file":"","result_stem":"job1","input_stem":"job1","runs":"at-once","after":null,"priority":"idle",)"
      R"("complete_on_failure":true,"note":"for Ann","client_host":"desk","owner_port":null,"task_key":"",)"
      R"("parent_process":0,"task_type":0,"task_level":0,"changes":*)";
  EXPECT_EQ(Golden({"list", "--json"}), "{\"schema\":1,\"jobs\":[{" + job + "}]}\n");
  EXPECT_THAT(Golden({"show", "last", "--json"}),
              HasSubstr("{\"schema\":1," + job + ",\"submitted_from\":\"" + disk.Root() + "\",\"command_line\":["));
  EXPECT_THAT(Golden({"last", "--json"}), AllOf(HasSubstr(R"("id":*,"handle":4,"server":*,"name":"job1",)"),
                                                HasSubstr(R"("outcome":"finished","exit_code":3,"ended":*})")));
  EXPECT_THAT(Desk({"show", "4"}).Output,
              AllOf(HasSubstr("Note                  for Ann\n"), HasSubstr("Typed                 tlmctl ")));
  EXPECT_EQ(Golden({"list", "--json", "--state", "running,queued"}), "{\"schema\":1,\"jobs\":[]}\n");
  client.SubmitJob(Plain("missing"));
  EXPECT_EQ(Ctl({"list", "-q", "--mine"}).Output, "4\n");
  EXPECT_EQ(Ctl({"list", "-q", "--mine", "--all"}).Output, "4\n8\n");
  EXPECT_EQ(Ctl({"list", "--state", "lost"}).ExitCode, kUsage);
}

TEST_F(Looking, SaysWhatAJobWaitsForOrHowItEnded) {
  const std::string running = SubmitWaiter();
  const std::string queued = Submit({"do"}, {"--queue"});
  const std::string follower = Submit({"do"}, {"--after", running});
  const std::pair<std::string, std::string> cases[] = {
      {running, "running\n"},
      {queued, "queue-stopped\n"},
      {follower, "predecessor\n"},
      {Submit({"do"}, {"--distribute"}), "local-limit\nno-pool\n"},
      {Submit({"do", "exit 3"}), "exit-code\n"},
      {Submit({"do", "kill -9 $$"}), "signal\n"},
      {Submit({"do", "exit 255"}), "exit-255\n"},
      {Submit({"missing"}), "no-program\n"},
      {Submit({"do"}), "no-report\n"},
      {Submit({"do"}, {"--complete-on-failure"}), "succeeded\nresults\n"},
      {Submit({"do", "exit 4"}, {"--complete-on-failure"}), "succeeded\nexempt\nresults\n"},
  };
  for (const auto& [job, codes] : cases) {
    EXPECT_TRUE(Eventually([&, id = job, expected = codes] {
      return Desk({"why", "-q", id}).Output == expected;
    })) << codes
        << "not " << Desk({"why", "-q", job}).Output;
  }
  client.SetQueueLimit(1);
  client.StartQueue(3600);
  EXPECT_EQ(Ctl({"why", "-q", queued}).Output, "queue-starts-later\nqueue-limit\n");
  client.StartQueue(0);
  EXPECT_THAT(Ctl({"why", queued}).Output, HasSubstr("limit, 1, is reached by job 4 job1 (Running, 0 %)"));
  client.TakeOwnership(4);
  EXPECT_EQ(Ctl({"why", "-q", running}).Output, "running\nowned\n");
  EXPECT_EQ(Ctl({"cancel", running}).ExitCode, 0);
  EXPECT_EQ(Ctl({"why", "-q", running}).Output, "removed\nowned\n");
  EXPECT_EQ(Ctl({"why", "-q", follower}).Output, "predecessor-failed\n");
  Submit({"do", "echo oops; exit 3"});
  ASSERT_EQ(Ctl({"wait", "last"}).ExitCode, 3);
  EXPECT_THAT(Desk({"why", "last", "--json"}).Output, HasSubstr(R"("output":["oops"])"));
  // Its output is another job's by now.
  const std::string failed = Desk({"last", "-q"}).Output.substr(0, 2);
  const std::string stem = "job" + std::to_string(std::stoi(failed) / 4);
  ASSERT_EQ(Desk({"submit", "-q", "--stem", stem, "--", "do", "echo other; exit 3"}).ExitCode, 0);
  ASSERT_EQ(Ctl({"wait", "last"}).ExitCode, 3);
  EXPECT_THAT(Desk({"why", failed, "--json"}).Output, HasSubstr(R"("output":[])"));
  constexpr std::uint64_t kNoProcess = 0x7FFFFFF0;  // that the server would have started
  const std::string attached = std::to_string(client.AttachProcess(kNoProcess, "solver", disk.Root()));
  EXPECT_TRUE(Eventually([&] { return Desk({"why", "-q", attached}).Output == "unknown\nowned\n"; }));
  EXPECT_THAT(Desk({"show", attached, "--json"}).Output,
              AllOf(HasSubstr(R"("exit_code":null)"), HasSubstr(R"("elapsed_seconds":null)")));
}

TEST_F(Looking, AsksTheOtherServersOfThePool) {
  const ServerProcess busy, idle;
  JobClient there(busy.Port());
  there.SubmitJob(Plain("do 'sleep 1000'"));
  client.SetServerPool({"127.0.0.2", "127.0.0.3", "127.0.0.4"});
  SubmitWaiter();
  const std::string job = SubmitWaiter({"--distribute", "--after", "4"});
  const auto why = RunTlmctl(server, disk, {"why", job},
                             {{"TSQOR_JMPORT_127.0.0.2", std::to_string(busy.Port())},
                              {"TSQOR_JMPORT_127.0.0.3", std::to_string(idle.Port())},
                              {"TSQOR_JMPORT_127.0.0.4", std::to_string(FreePort())}});
  EXPECT_THAT(why.Output, AllOf(HasSubstr("127.0.0.2 is busy: jobs 1, limit 1"), HasSubstr("127.0.0.3 has room"),
                                HasSubstr("127.0.0.4 does not answer")));
  there.AbortAllJobs();
}

// -- to the end
TEST_F(Looking, WaitsWithoutAWordAndEndsAsTheJob) {
  const std::string waiter = SubmitWaiter();
  const std::string three = Submit({"do", "exit 3"});
  const std::string silent = Submit({"do"});
  const std::string missing = Submit({"missing"});
  const std::string good = Submit({"do"}, {"--complete-on-failure"});
  const std::tuple<Words, int, std::string> cases[] = {
      {{three}, 3, ""},
      {{silent}, kAborted, ""},
      {{missing}, kLaunchFailed, ""},
      {{good}, 0, ""},
      {{good, silent, three}, kAborted, ""},
      {{"--any", waiter, three}, 3, three + "\n"},
      {{"400"},
       kRefused,
       "tlmctl: the server has no job 400\n  it may have finished, or the server was restarted since\n"},
      {{waiter, "--timeout", "1"}, kTimedOut, "tlmctl: the jobs have not all ended within 1\n  they go on\n"},
      {{waiter, "--timeout", "soon"},
       kUsage,
       "tlmctl: \"soon\" is no duration\n  it is a number of seconds, or one with m, h or d behind it: 90, 15m, 2h, "
       "7d\n"},
  };
  for (const auto& [jobs, code, output] : cases) {
    EXPECT_THAT(Ctl(Words{"wait"} + jobs), Ends(code, output)) << testing::PrintToString(jobs);
  }
  const Proxy proxy(server.Port());
  auto wait = Following(proxy, {"wait", waiter});
  client.RemoveJob(4);
  EXPECT_EQ(wait.get().ExitCode, kAborted);
}

TEST_F(Looking, WatchesByTheLineAndThroughALossButNotThroughARestart) {
  Proxy broken(server.Port());
  std::optional<Proxy> proxy(std::in_place, server.Port());
  SubmitWaiter(Through(*proxy, {}));
  client.Await(4, {Running});
  auto watch = Following(broken, {"watch", "4"});
  auto events = Following(*proxy, {"watch", "--json"});
  broken.Cut();
  ASSERT_TRUE(Eventually([&] { return broken.Connections() == 2; }));
  LetWaitersGo();
  EXPECT_THAT(watch.get(), Ends(kAborted, AllOf(HasSubstr("job 4 job1: Running, 0 %\n"),
                                                HasSubstr("connection to the server was lost"),
                                                HasSubstr("job 4 job1: Aborted, exit code 0, "))));
  EXPECT_THAT(events.get().Output, AllOf(HasSubstr(R"({"schema":1,"event":"state","job":{"handle":4,)"),
                                         HasSubstr(R"({"schema":1,"event":"end","job":{"handle":4,)")));
  SubmitWaiter(Through(*proxy, {}));
  auto wait = Following(*proxy, {"wait", "8"});
  Environment settings = server.Settings();
  settings["TSQOR_JMPORT"] = std::to_string(proxy->Port());
  const Words history = Through(*proxy, {"history"});
  proxy.reset();
  server.Stop();
  EXPECT_THAT(Ctl(history).Output, HasSubstr("does not answer"));
  const ServerProcess another(settings);
  EXPECT_THAT(wait.get(),
              Ends(kLost, AllOf(HasSubstr("the server has forgotten job 8 job2"), HasSubstr("tlmctl resubmit @"))));
  EXPECT_THAT(Ctl(history).Output, ContainsRegex("job1 .* aborted, exit code 0\n.* job2 .* gone\n"));
}

TEST_F(Looking, LeavesAJobAloneThatHasGotTheHandleOfAnOlderOne) {
  SubmitWaiter();
  const Environment settings = server.Settings();
  ASSERT_EQ(server.Stop(), 0);
  const ServerProcess another(settings);
  JobClient stranger(another.Port(), "desk");
  ASSERT_EQ(stranger.SubmitJob(Plain("waiter")), 4U);
  stranger.Await(4, {Running});
  for (const std::string command : {"show", "why", "output", "results", "wait", "watch", "cancel", "release"}) {
    EXPECT_THAT(Desk({command, "4"}),
                Ends(kRefused, HasSubstr("that was another job: job 4 is now \"\" of desk, and not \"job1\"")))
        << command;
  }
  EXPECT_THAT(Desk({"priority", "4", "high"}).Output, HasSubstr("that was another job"));
  EXPECT_THAT(Desk({"submit", "--after", "4", "waiter"}).Output, HasSubstr("that was another job"));
  // However the server is spelled.
  EXPECT_THAT(Desk({"cancel", "4", "--server", "LocalHost:" + std::to_string(server.Port())}).Output,
              HasSubstr("named by =4"));
  EXPECT_EQ(stranger.Get(4).Status, std::uint32_t{Running});
  EXPECT_EQ(Desk({"show", "-q", "=4"}).Output, "running\n");
  EXPECT_EQ(Desk({"cancel", "-q", "=4"}).Output, "4 aborted\n");
}

TEST_F(Looking, TellsTheEndsOfJobsThatHaveLeft) {
  Submit({"do", "exit 3"}, {"--complete-on-failure"});
  const std::string id = Desk({"history", "-q", "-n", "1"}).Output.substr(0, 9);
  SubmitWaiter();
  ASSERT_EQ(Desk({"wait", "4"}).ExitCode, 3);
  ASSERT_EQ(Desk({"results", "4"}).ExitCode, 0);
  EXPECT_THAT(Desk({"show", "4"}).Output, HasSubstr("it was seen to end as finished with exit code 3 on "));
  EXPECT_EQ(Desk({"wait", id}).ExitCode, 3);
  EXPECT_THAT(Golden({"wait", "--json", "4"}),
              HasSubstr(R"({"schema":1,"timed_out":false,"jobs":[{"over":true,"gone":true,"removed":false,"code":3,)"));
  auto wait = CtlMeanwhile({"wait", "8"});
  EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
  ASSERT_EQ(Desk({"release", "8"}).ExitCode, 0);
  LetWaitersGo();
  EXPECT_NE(wait.get().ExitCode, 0);
  EXPECT_THAT(Golden({"history", "--json", "-n", "2"}),
              HasSubstr(R"("sent":[],"outcome":"finished","exit_code":3,"ended":*},{"id":*,"handle":8,)"));
  EXPECT_EQ(Ctl({"history", "-n", "-5"}).ExitCode, kUsage);
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(disk / "state/tlmctl/ledger.jsonl").permissions(),
            perms::owner_read | perms::owner_write);
}

TEST_F(Looking, SubmitsAnewToTheServerThatHadTheJob) {
  const ServerProcess other;
  const std::string there = other.Address();
  ASSERT_EQ(Ctl({"submit", "-q", "--server", there, "--", "do", "exit 3"}).Output, "4\n");
  const std::string id = Ctl({"history", "-q", "-n", "1"}).Output.substr(0, 9);
  EXPECT_THAT(Ctl({"resubmit", id}).Output, HasSubstr("tlmctl --server " + there + " submit -q -- do 'exit 3'\n8\n"));
  EXPECT_EQ(Ctl({"resubmit"}).ExitCode, kRefused);  // the last one here
  EXPECT_EQ(Ctl({"list", "-q"}).Output, Ctl({"list", "-q", "--mine"}).Output);
}

TEST_F(Looking, WaitsNoLongerThanWantedWhileTheServerIsBusy) {
  SubmitWaiter();
  auto wait = CtlMeanwhile({"wait", "4", "--timeout", "2", "--json"});
  EXPECT_EQ(wait.wait_for(std::chrono::milliseconds(700)), std::future_status::timeout);
  kill(server.Pid(), SIGSTOP);
  const auto timely = wait.wait_for(std::chrono::seconds(8));
  kill(server.Pid(), SIGCONT);
  EXPECT_EQ(timely, std::future_status::ready);
  EXPECT_THAT(wait.get(), Ends(kTimedOut, HasSubstr(R"({"schema":1,"timed_out":true,"jobs":[{"over":false,)")));
}

// -- output
TEST_F(Looking, PrintsOutputOfAnyLengthAndItsLastLines) {
  constexpr std::size_t kLength = 20'000'000;
  Submit({"do", "head -c " + std::to_string(kLength) + " /dev/zero | tr '\\0' x; echo; echo a; echo b"});
  Submit({"do", "truncate -s 5G job2_out"});
  ASSERT_EQ(Ctl({"wait", "4", "8"}).ExitCode, kAborted);
  EXPECT_TRUE(Desk({"output", "4"}).Output == std::string(kLength, 'x') + "\na\nb\n");
  EXPECT_EQ(Desk({"output", "--tail", "2", "4"}).Output, "a\nb\n");
  EXPECT_EQ(Desk({"output", "--tail", "3", "4"}).Output.size(), kLength + 5);
  EXPECT_EQ(Desk({"output", "--tail", "1", "--json", "4"}).Output,
            "{\"schema\":1,\"handle\":4,\"offset\":20000003,\"text\":\"b\\n\"}\n");
  EXPECT_THAT(Desk({"output", "--tail", "0", "8"}).Output, HasSubstr("tlmctl: the output goes on beyond 4 GiB"));
}

TEST_F(Looking, PrintsOutputAsItComesButOnlyForItsOwner) {
  SubmitWaiter();
  ASSERT_TRUE(client.TakeOwnership(4));
  EXPECT_THAT(Desk({"output", "4"}), Ends(kRefused, HasSubstr("belongs to another client, at port ")));
  EXPECT_THAT(Ctl({"output", "4", "--client-host", "elsewhere"}).Output, HasSubstr("this one is \"elsewhere\""));
  client.Disconnect();
  auto output = CtlMeanwhile({"--client-host", "desk", "output", "-f", "4"});
  ASSERT_TRUE(EventuallyShows("4", "the client at port"));
  EXPECT_EQ(output.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  LetWaitersGo();
  EXPECT_EQ(output.get().Output, "one\ntwo\n");
}

TEST_F(Looking, CancelsJobsWithThoseThatWaitForThem) {
  SubmitWaiter();
  SubmitWaiter({"--after", "4"});
  SubmitWaiter({"--after", "8"});
  Submit({"do"}, {"--complete-on-failure"});
  ASSERT_EQ(Ctl({"wait", "16"}).ExitCode, 0);
  EXPECT_THAT(Ctl({"cancel", "4", "16", "400"}),
              Ends(kRefused, AllOf(HasSubstr("job 4 job1: Aborted\n"), HasSubstr("job 16 job4: Removed\n"),
                                   HasSubstr("job 8 job2: Aborted, as it waited for job 4\n"),
                                   HasSubstr("job 12 job3: Aborted, as it waited for job 8\n"),
                                   HasSubstr("tlmctl: the server has no job 400"))));
  EXPECT_THAT(Ctl({"history"}).Output, ContainsRegex("job1 .* aborted, .*\n.* job2 .* aborted\n"));
  EXPECT_EQ(Ctl({"cancel", "--json", "4", "4"}).Output.find("\"because_of\":null,\"job\":{\"handle\":4,"), 26U);
}
}  // namespace
}  // namespace tlm::test
