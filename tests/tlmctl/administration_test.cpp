// What an administrator does with the real client.
#include "platform/thread.h"
#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
struct Administration : JobTest {
  ProgramEnd Ctl(const Words& words, const Environment& more = {}) const {
    return RunTlmctl(Server, Work, words, more);
  }

  // Lines of the client one after the other, with their exit codes and all that they print but for the last line end.
  struct Step {
    Words Line;
    std::string Output;
    int ExitCode = 0;
  };
  void Expect(const std::vector<Step>& steps) const {
    for (const Step& step : steps) {
      EXPECT_THAT(Ctl(step.Line), Ends(step.ExitCode, step.Output.empty() ? "" : step.Output + "\n"))
          << testing::PrintToString(step.Line);
    }
  }
  void ExpectUsage(const Words& command, const std::vector<Words>& lines) const {
    for (const Words& line : lines) EXPECT_EQ(Ctl(command + line).ExitCode, 64) << testing::PrintToString(line);
  }
};

TEST_F(Administration, StartsStopsAndLimitsTheQueue) {
  const std::string idle = R"("starts_at":null,"limit":3,"waiting":0,"running":0,"running_from_queue":0})";
  Expect({
      {{"queue", "limit", "3"}, "3"},
      {{"--json", "queue", "limit"}, "{\"schema\":1,\"limit\":3}"},
      {{"--json", "queue", "start"}, "{\"schema\":1,\"runs\":true," + idle},
      {{"-q", "queue", "status"}, "running"},
      {{"--json", "queue", "stop"}, "{\"schema\":1,\"runs\":false," + idle},
      {{"queue", "status"},
       "Queue    stands still\nWaiting  0 jobs\nRunning  0 jobs, 0 of them from the queue\n"
       "Limit    3 at once"},
  });
  ExpectUsage({"queue"}, {{"limit", "0"}, {}});
  ExpectUsage({"queue", "start"},
              {{"--in", "soon"}, {"--at", "25:00"}, {"--in", "1h", "--at", "3:00"}, {"--in", "1h", "--cancel"}});
}

TEST_F(Administration, SetsATimeForTheQueueWhichAStopKeepsAndADrainTakesBack) {
  const auto starts = [this] { return static_cast<std::int64_t>(Client.GetQueueStartTime()); };
  const std::int64_t now = platform::SecondsSince1970();
  EXPECT_THAT(Ctl({"queue", "start", "--in", "2h"}).Output, StartsWith("Queue    stands still, starts at "));
  EXPECT_THAT(starts(), AllOf(testing::Ge(now + 7200), testing::Le(now + 7260)));
  EXPECT_EQ(Ctl({"queue", "start", "--at", "22:30"}).ExitCode, 0);
  EXPECT_EQ(starts() % 60, 0);
  EXPECT_THAT(Ctl({"queue", "stop"}).Output, HasSubstr("queue start --cancel"));
  EXPECT_NE(starts(), 0);
  EXPECT_THAT(Ctl({"--json", "queue", "drain"}).Output, HasSubstr("\"runs\":false,\"starts_at\":null"));
  Ctl({"queue", "start", "--in", "1d"});
  EXPECT_THAT(Ctl({"--json", "queue", "start", "--cancel"}).Output, HasSubstr("\"starts_at\":null"));
  EXPECT_EQ(starts(), 0);
}

TEST_F(Administration, DrainsTheQueueOfWhatRuns) {
  Client.SetQueueLimit(1);
  Client.StartQueue(0);
  const std::uint64_t first = SubmitQueued(Do(Wait("first"))), second = SubmitQueued(Succeed("true"));
  AwaitNumber("first");
  auto drain = std::async(std::launch::async, [this] { return Ctl({"queue", "drain", "--wait"}); });
  ASSERT_TRUE(Eventually([this] { return !Client.IsQueueRunning(); }));
  EXPECT_THAT(Ctl({"--json", "queue", "status"}).Output,
              HasSubstr(R"("waiting":1,"running":1,"running_from_queue":1})"));
  EXPECT_EQ(drain.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  Work.Write("stop");
  EXPECT_THAT(drain.get(), Ends(0, HasSubstr("waiting for the end of 1 job: 4")));
  EXPECT_THAT(Client.Statuses({first, second}), ElementsAre(Aborted, Queued));
}

TEST_F(Administration, SetsPriorities) {
  Submit(Do(Wait("running")));
  AwaitNumber("running");
  Expect({
      {{"priority", "--default"}, "idle"},
      {{"--json", "priority", "--default", "high"}, "{\"schema\":1,\"default_priority\":\"high\"}"},
      {{"priority", "4", "normal"}, "job 4 job1: normal"},
      {{"--json", "priority", "4", "idle"}, "{\"schema\":1,\"handle\":4,\"priority\":\"idle\"}"},
      {{"priority", "8", "idle"},
       "tlmctl: the server has no job 8\n  it may have finished, or the server was restarted since",
       77},
  });
  EXPECT_EQ(Client.Get(4).Priority, 1U);
  ExpectUsage({"priority"}, {{"4"}, {"4", "low"}, {}, {"--default", "low"}, {"4", "--default"}});
}

TEST_F(Administration, LetsTheServerForgetWhatHasFailed) {
  Client.AwaitEnd(Submit(Do("true")));
  const std::uint64_t first = Submit(Do("true"));
  Client.AwaitEnd(Submit(Do("true"), first));
  Client.AwaitEnd(Submit("missing"));
  Expect({
      {{"release", "4"}, "job 4 job1: gone"},
      {{"release", "8", "4"},
       "tlmctl: the server has no job 4\n  it may have finished, or the server was restarted since",
       77},
      {{"release", "8"}, "job 8 job2: released, stays until no other job waits for it"},
      {{"--json", "release", "12", "16"},
       R"({"schema":1,"jobs":[{"handle":12,"name":"job3","gone":true},{"handle":16,"name":"job4","gone":true}]})"},
  });
  EXPECT_THAT(Client.Jobs(), IsEmpty());
}

TEST_F(Administration, EndsEveryJob) {
  Submit(Do(Wait("running")));
  SubmitQueued(Do("true"));
  AwaitNumber("running");
  Expect({
      {{"--json", "--yes", "abort-all"},
       R"({"schema":1,"were_running":1,"were_waiting":1,"still_running":0,"left":2})"},
      {{"abort-all"}, "0 jobs ended, 0 taken back, 2 left that failed or have results"},
  });
}

TEST_F(Administration, ChangesWhatTheServerWouldElseTakeFromItsSettings) {
  const std::string root = Server.Root().Root(), other = Work.MakeDirectory("other");
  Expect({
      {{"pool", "set", "beta", "gamma"}, "beta\ngamma"},
      {{"--json", "pool", "get"}, "{\"schema\":1,\"hosts\":[\"beta\",\"gamma\"]}"},
      {{"pool", "set", "--yes"}, "tlmctl: no peers: the server runs distributed jobs itself"},
      {{"load-limit", "8"}, "8, and the load is 0"},
      {{"-q", "load-limit"}, "8"},
      {{"--json", "load-limit"}, "{\"schema\":1,\"load_limit\":8,\"load\":0}"},
      {{"temp-root"}, root + "\nfiles may be deleted after 7 days"},
      {{"temp-root", root + "/", "--expiry", "36h"}, root + "\nfiles may be deleted after 36 hours"},
      {{"temp-root", other}, other + "\nfiles may be deleted after 36 hours"},
      {{"--json", "temp-root", "--expiry", "90"},
       "{\"schema\":1,\"directory\":\"" + other + "\",\"expiry_seconds\":90}"},
      {{"env", "set", "GREETING=hello=you", "HOME="}, ""},
      {{"--json", "env", "set", "A=1", "B="}, "{\"schema\":1,\"set\":[\"A\"],\"removed\":[\"B\"]}"},
  });
  ExpectUsage({"pool", "set"}, {{"beta gamma"}, {"beta:20317"}});
  ExpectUsage({"temp-root"}, {{"relative"}, {"--expiry", "200y"}, {"--expiry", "40000d"}});
  ExpectUsage({"env"}, {{}, {"set", "=1"}, {"set", "NAME"}});
  ExpectUsage({"load-limit"}, {{"0"}});
  EXPECT_THAT(Ctl({"temp-root", "/nowhere"}).Output, HasSubstr("did not take /nowhere as its temporary root"));
  EXPECT_EQ(Client.OutputOf(Do("echo $GREETING"), Work.Root()), "hello=you\n");
}

TEST_F(Administration, LooksAfterFilesOnTheServer) {
  Work.Write("a:b.inp", "four");
  Work.Write("sub/empty");
  std::filesystem::resize_file(Work.Write("huge"), 4294967296);
  const std::string size = "4294967296";
  Expect({
      {{"files", "check", "a:b.inp", "sub/empty", "none"},
       "FILE       HERE     SERVER  WOULD TRAVEL\na:b.inp    4 bytes  -       yes\nsub/empty  0 bytes  -       yes\n"
       "none       -        -       no\ntlmctl: 4 bytes would travel"},
      {{"files", "put", "a:b.inp", "huge"},
       "tlmctl: huge has 4.3 GB, and a file that travels 4294967295 bytes at most\n"
       "  cut it up, or let the job run --in-place where the server reaches the directory",
       64},
      {{"files", "put", "none"}, "tlmctl: there is no file none", 64},
      {{"files", "put", "sub"},
       "tlmctl: left out, as only files travel: the directory sub\ntlmctl: there is no file among these\n"
       "  only files travel, one by one",
       64},
      {{"files", "put", "a:b.inp", "sub/empty"}, "a:b.inp, 4 bytes\nsub/empty, 0 bytes"},
      {{"--json", "files", "check", "a:b.inp", "sub/empty"},
       R"({"schema":1,"files":[{"file":"a:b.inp","size":4,"server_size":4,"travels":false},)"
       R"({"file":"sub/empty","size":0,"server_size":0,"travels":false}],"bytes_to_send":0})"},
      {{"-q", "files", "put", "--only-missing", "a:b.inp", "sub/empty"}, ""},
  });
  Work.Write("a:b.inp", "longer");
  Expect({
      {{"-q", "files", "check", "a:b.inp", "sub/empty"}, "a:b.inp"},
      {{"--json", "files", "put", "--only-missing", "a:b.inp", "sub/empty"},
       R"({"schema":1,"sent":[{"file":"a:b.inp","size":6}],"bytes_sent":6})"},
      {{"--json", "files", "check", "huge", "./sub/../a:b.inp"},
       R"({"schema":1,"files":[{"file":"huge","size":)" + size +
           R"(,"server_size":null,"travels":true},)"
           R"({"file":"./sub/../a:b.inp","size":6,"server_size":6,"travels":false}],"bytes_to_send":)" +
           size + "}"},
      {{"files", "delete", "a:b.inp", "none"}, "tlmctl: not there: none\n1 file deleted"},
      {{"--json", "files", "delete", "a:b.inp"},
       "{\"schema\":1,\"note\":\"not there: a:b.inp\"}\n{\"schema\":1,\"deleted\":0,\"absent\":[\"a:b.inp\"]}"},
  });
  EXPECT_EQ(Work.Read("a:b.inp"), "longer");
}

TEST_F(Administration, ExaminesTheServer) {
  const std::uint16_t closed = FreePort();
  Client.SetServerPool({"127.0.0.1", "localhost"});
  Client.SetLocalLimit(3);
  SubmitQueued(Do("true"));
  Submission job = NewJob(Do("true"));
  job.ClientNote = "tlmctl:0123456789ab";
  const auto submitted = platform::SecondsSince1970() - 7200;
  Client.SubmitJob(job);
  const std::string server = Server.Address();
  Work.Write("state/tlmctl/ledger.jsonl", R"({"id":"0123456789ab","handle":8,"server":")" + server +
                                              R"(","directory":"/","name":"a","command":"a","words":[],"from":"/",)"
                                              R"("submitted":)" +
                                              std::to_string(submitted) + ",\"sent\":[]}\n");
  const Environment peers{{"TSQOR_JMPORT", std::to_string(Server.Port())},
                          {"TSQOR_JMPORT_localhost", std::to_string(closed)}};
  const auto end = Ctl({"doctor"}, peers);
  EXPECT_EQ(end.ExitCode, 0);
  const std::vector<std::string> lines{
      "OK    server      " + server + " answers in ",
      "OK    release     ",
      "OK    root        " + Server.Root().Root() + " takes files, ",
      "WARN  port        port " + std::to_string(Server.Port()) + " is open at all addresses",
      "WARN  queue       stands still; 1 job waiting, ",
      "OK    peer        " + server + " answers; load ",
      "WARN  peer        localhost:" + std::to_string(closed) + " does not answer",
      "WARN  clock       the server's is 2:00:0"};
  for (const std::string& line : lines) EXPECT_THAT(end.Output, HasSubstr(line));
  EXPECT_THAT(Ctl({"--json", "doctor"}, peers).Output, StartsWith(R"({"schema":1,"result":"warning","checks":[{)"));
  EXPECT_THAT(Ctl({"-q", "doctor", "--release", "none"}, peers),
              Ends(77, StartsWith("FAIL  release     the server has no programs of release none")));
  std::filesystem::remove_all(Server.Root().Root());
  std::ofstream(Server.Root().Root()).close();
  EXPECT_THAT(Ctl({"-q", "doctor"}, peers).Output,
              HasSubstr("FAIL  root        " + Server.Root().Root() + " takes no"));
  EXPECT_EQ(Ctl({"doctor", "--server", LocalAddress(closed)}).ExitCode, 69);
}

TEST_F(Administration, EndsTheServer) {
  Submit(Do(Wait("running")));
  SubmitQueued(Do("true"));
  Client.AwaitEnd(Submit("missing"));
  AwaitNumber("running");
  EXPECT_EQ(Ctl({"--json", "shutdown"}).Output, "{\"schema\":1,\"server\":\"" + Server.Address() +
                                                    R"(","lost_running":1,"lost_waiting":1,"forgotten":1})"
                                                    "\n");
  EXPECT_EQ(Server.AwaitEnd(), 0);
  EXPECT_EQ(Ctl({"shutdown"}).ExitCode, 69);
}
}  // namespace
}  // namespace tlm::test
