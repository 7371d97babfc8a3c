// Who gets in, and who may change what holds for all.
#include <deque>
#include <signal.h>
#include <sys/stat.h>

#include "rpc/admission.h"
#include "server/qorjmserver.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
const auto kAddress = [](const char* text) { return *platform::ParseAddress(text); };

void Greet(RawConnection& connection) { EXPECT_EQ(connection.Ask(Call(0)), Reply()); }

TEST(AddressRange, HoldsAddressesWithItsFirstBits) {
  const auto range = AddressRange::Parse("10.1.77.3/16");
  ASSERT_TRUE(range);
  EXPECT_TRUE(range->Contains(kAddress("10.1.255.255")));
  EXPECT_FALSE(range->Contains(kAddress("10.2.0.0")));
  EXPECT_TRUE(AddressRange::Parse("0.0.0.0/0")->Contains(kAddress("203.0.113.9")));
  EXPECT_FALSE(AddressRange::Parse("192.0.2.1")->Contains(kAddress("192.0.2.0")));
  for (const char* text : {"", "/8", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/8x", "10.0.0/8", "010.0.0.0/8", "host"}) {
    EXPECT_FALSE(AddressRange::Parse(text)) << text;
  }
}

TEST(Access, IsToldAtTheStart) {
  const ServerProcess local(Environment{{"TSQOR_LISTEN", "127.0.0.1"}});
  const std::string line = "Listening on " + local.Address() + " as ";
  const JobClient greeted(local.Port());
  EXPECT_THAT(local.Output(), AllOf(HasSubstr(line), HasSubstr(": whoever reaches it can run commands as that user"),
                                    Not(HasSubstr("every address is let in"))));
  const ServerProcess open;
  const JobClient welcome(open.Port());
  EXPECT_THAT(open.Output(), HasSubstr("WARNING: every address is let in; TSQOR_LISTEN and TSQOR_ALLOW change that"));
  const ServerProcess elsewhere(
      Environment{{"TSQOR_LISTEN", "127.0.0.7"}, {"TSQOR_ALLOW", "192.0.2.0/24, 198.51.100.1"}});
  RawConnection here(elsewhere.Port());
  Greet(here);  // this machine is let in, for the programs of jobs
}

TEST(Access, WithSettingsThatNobodyUnderstandsIsNone) {
  const Sandbox disk;
  const std::pair<Environment, std::string> cases[] = {
      {{{"TSQOR_ALLOW", "10.0.0.0/8, 10.0.0.0/33"}}, "TSQOR_ALLOW: 10.0.0.0/33 is no range of addresses"},
      {{{"TSQOR_LISTEN", "everywhere"}}, "TSQOR_LISTEN: everywhere is no IPv4 address\n"},
      {{{"TSQOR_ALLOW", ""}}, "TSQOR_ALLOW: an empty list would let everybody in\n"},
      {{{"TSQOR_RECORD_LIMIT", "4096"}}, "TSQOR_RECORD_LIMIT: 4096 is too large\n"},
      {{{"TSQOR_LOCAL_ADMIN", "yes"}}, "TSQOR_LOCAL_ADMIN: yes is no number\n"},
      {{{"TSQOR_ALLOW", std::string(255, ' ')}}, "TSQOR_ALLOW: a value of this length may have been cut off\n"},
      {{{"TSQOR_MAX_CONNECTIONS", "many"}}, "TSQOR_MAX_CONNECTIONS: many is no number\n"},
      {{{"TSQOR_JOB_LOG", "jobs"}}, "TSQOR_JOB_LOG: jobs is no absolute path\n"},
      {{{"TSQOR_JOB_LOG", disk.Path("sub/jobs")}}, "sub/jobs is no file in a directory that is there\n"},
      {{{"TSQOR_JOB_LOG", disk.Path("pipe")}}, "pipe is no file in a directory that is there\n"}};
  ASSERT_EQ(mkfifo(disk.Path("pipe").c_str(), 0600), 0);
  for (auto [environment, text] : cases) {
    environment.insert({{"TSQOR_JMPORT", std::to_string(FreePort())}, {"TSQOR_TMP", disk.Root()}});
    EXPECT_THAT(RunProgram({TLMJM, "debug"}, environment), Ends(1, HasSubstr(text)));
  }
}

TEST(Access, IsNotKeptByThoseWhoNeverCall) {
  ServerProcess server(
      Environment{{"TSQOR_FIRST_CALL_LIMIT", "1"}, {"TSQOR_SILENCE_LIMIT", "1"}, {"TSQOR_RECORD_LIMIT", "1"}});
  server.Root().Write("JMTrace.on");
  RawConnection client(server.Port());
  Greet(client);
  RawConnection idle(server.Port()), slow(server.Port(), Record(Call(0)).substr(0, 20));
  RawConnection stuck(server.Port());
  Greet(stuck);
  stuck.Send(Record(Call(46)).substr(0, 30));
  RawConnection half(server.Port(), U32(0x80000100) + std::string(50, 'x'));
  RawConnection large(server.Port(), U32(0x80100001) + std::string(50, 'x'));
  for (RawConnection* one : {&idle, &slow, &stuck, &half, &large}) EXPECT_TRUE(one->IsClosedByPeer());
  Greet(client);

  RawConnection early(server.Port());
  Greet(client);
  kill(server.Pid(), SIGSTOP);
  early.Send(Record(Call(0)));
  EXPECT_FALSE(early.IsReadableWithin(std::chrono::milliseconds(1500)));
  kill(server.Pid(), SIGCONT);
  EXPECT_EQ(early.ReceiveRecord(), Reply()) << "its call had come in time";
}

TEST(Access, IsNotBarredByACrowdThatStopsWithinItsFirstCalls) {
  const ServerProcess server(Environment{{"TSQOR_FIRST_CALL_LIMIT", "60"}});
  std::deque<RawConnection> crowd;
  for (int i = 0; i < 520; ++i) {
    crowd.emplace_back(server.Port(), U32(0x80000100) + std::string(50, 'x'));
    if (i % 8 != 7) continue;
    EXPECT_LT(TimeOf([&] { JobClient{server.Port()}; }), std::chrono::seconds(20));
  }
}

TEST(Access, IsGivenToClientsBeforeStrangers) {
  const ServerProcess server(Environment{{"TSQOR_MAX_CONNECTIONS", "3"}});
  RawConnection client(server.Port());
  Greet(client);
  RawConnection stranger(server.Port());
  std::deque<RawConnection> others;  // from this machine there may be a hundred more
  for (int i = 0; i < 101; ++i) Greet(others.emplace_back(server.Port()));
  RawConnection newcomer(server.Port());
  EXPECT_TRUE(stranger.IsClosedByPeer());
  Greet(newcomer);
  EXPECT_TRUE(RawConnection(server.Port()).IsClosedByPeer());
  Greet(client);
}

TEST(Access, ToTheLoaderIsRefused) {
  const ServerProcess server(Environment{{"TSQOR_NO_LOADER_VARIABLES", "1"}});
  server.AddProgram("show", "echo $LD_AUDIT-$OTHER");
  const Sandbox work;
  JobClient client(server.Port());
  client.SetEnvironment({{"LD_AUDIT", "x"}, {"LD_AUDIT=y", ""}, {"OTHER", "z"}});
  EXPECT_EQ(client.OutputOf("show", work.Root()), "-z\n");
}

TEST(Access, ToFilesEndsAtTheRoots) {
  const Sandbox outside, extra;
  const ServerProcess server(Environment{{"TSQOR_CONFINE", "1"}, {"TSQOR_CONFINE_ROOTS", extra.Root() + "/"}});
  JobClient client(server.Port());
  const std::string source = outside.Write("source", "content");
  outside.MakeDirectory("sub");
  outside.Write("qorjmmsg.999999", "4 1");
  const std::string mapped = client.Map("/home/somebody/");
  std::filesystem::create_symlink(outside.Root(), mapped + "/link");
  std::filesystem::create_symlink("..", extra.Path("up"));
  std::filesystem::create_symlink(outside.Path("none"), extra.Path("where_out"));
  const auto put = [&](const std::string& destination) { return client.PutFiles({{{destination, source}}}); };
  EXPECT_TRUE(put(mapped + "/a"));
  EXPECT_TRUE(put(extra.Path("a")));
  for (const std::string& destination :
       {outside.Path("a"), mapped + "/link/a", mapped + "/../../a", mapped + "/link/sub/a", std::string("a"),
        extra.Root() + "x/a", extra.Path(".."), extra.Path("up/a")}) {
    EXPECT_FALSE(put(destination)) << destination;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside.Root()), {}), 3) << "nothing has come";
  EXPECT_FALSE(client.UpdateClientFiles({source}, {}));
  EXPECT_TRUE(outside.Has("source"));
  EXPECT_TRUE(client.UpdateClientFiles({mapped + "/a"}, {}));
  EXPECT_FALSE(std::filesystem::exists(mapped + "/a"));

  server.AddProgram("where", "pwd");
  Submission job = JobIn("", "where", "where");
  for (const std::string& directory : {outside.Root(), mapped + "/link", std::string("/")}) {
    job.WorkDir = directory;
    EXPECT_EQ(client.SubmitJob(job), 0U) << directory;
  }
  EXPECT_EQ(client.OutputOf("where", extra.Root()), extra.Root() + "\n");
  EXPECT_EQ(client.OutputOf("where", "/home/somebody/"), mapped + "\n");
  job.WorkDir = extra.Root();
  job.ResultStem = "../where";
  EXPECT_EQ(client.SubmitJob(job), 0U);
  EXPECT_FALSE(client.SetTempRoot(outside.Root(), 1));

  // Links that come later, in the place of the directory and of the output.
  job.WorkDir = extra.MakeDirectory("work");
  job.ResultStem = "source";
  job.RunClass = kRunQueued;
  const std::uint64_t moved = client.SubmitJob(job);
  std::filesystem::rename(extra.Path("work"), extra.Path("former"));
  std::filesystem::create_symlink(outside.Root(), extra.Path("work"));
  EXPECT_TRUE(client.StartQueue(0));
  EXPECT_EQ(client.AwaitEnd(moved).Status, LaunchFailed);
  server.AddProgram("lead", "ln -sf " + source + " 'lead;where_out'");
  EXPECT_EQ(client.OutputOf("lead;where", extra.Root()), "content") << "what stood there, and nothing behind it";
  EXPECT_EQ(client.AwaitEnd(client.AttachProcess(999999, "x", outside.Root())).Status, Aborted);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside.Root()), {}), 3) << "nothing has come or gone";

  FileTransferList many;
  for (int i = 0; i < 64; ++i) many.Items.push_back({extra.MakeDirectory(std::to_string(i)) + "/a", source});
  EXPECT_TRUE(client.PutFiles(many));
  many.Items.push_back({extra.Path("0/./a"), source});
  EXPECT_TRUE(client.PutFiles(many)) << "another name of one of them";
  many.Items.push_back({mapped + "/a", source});
  EXPECT_FALSE(client.PutFiles(many)) << "one too many";
  EXPECT_TRUE(client.SetTempRoot(server.Root().Root() + "/", 100));
  EXPECT_TRUE(put(client.Map("/home/somebody/") + "/a"));
}

TEST(Access, ToTheServersOwnFilesIsForNobody) {
  const Sandbox outside;
  outside.Write("old");
  std::filesystem::last_write_time(outside.Path("old"), {});
  const ServerProcess server(Environment{{"TSQOR_CONFINE", "1"}, {"TSQOR_CONFINE_ROOTS", "/"}});
  const std::string table = "desk\nkey\n" + outside.Root() + "\n";
  JobClient client(server.Port());
  for (const char* name : {"tlm2010.sta", "tlm2010.sta~", "tlm2010_dp.sta", "JMTrace.on", ".config/registry.ini"}) {
    const std::string own = server.Root().Write(name, table);
    EXPECT_FALSE(client.PutFiles({{{own, outside.Path("old")}}})) << name;
    EXPECT_FALSE(client.UpdateClientFiles({own}, {})) << name;
    EXPECT_EQ(server.Root().Read(name), table);
  }
  EXPECT_EQ(client.SubmitJob(JobIn(server.Root().Root())), 0U);
  const std::string mapped = client.Map("key");
  EXPECT_THAT(mapped, StartsWith(server.Root() / "tq"));
  EXPECT_TRUE(outside.Has("old"));
  EXPECT_TRUE(client.PutFiles({{{mapped + "/a", outside.Path("old")}, {outside.Path("new"), outside.Path("old")}}}));
}

TEST(Access, EndsWhereTheDiskIsFull) {
  const ServerProcess server(Environment{{"TSQOR_FREE_DISK", "4000000000"}});
  JobClient client(server.Port());
  const std::string mapped = client.Map("/home/somebody/");
  const Sandbox disk;
  EXPECT_FALSE(client.PutFiles({{{mapped + "/a", disk.Write("a", "text")}}}));
  EXPECT_FALSE(std::filesystem::exists(mapped + "/a.tmp"));
  EXPECT_EQ(client.SubmitJob(JobIn("/home/somebody/", "true")), 0U);
}

TEST(Access, ToWhatHoldsForAllIsForThisMachine) {
  JobManagerState state;
  state.Restrictions.LocalAdministration = true;
  ORpcThread thread;
  QorJMServer remote(state, thread);
  const Sandbox disk;
  EXPECT_FALSE(remote.SetQueueLimit(7));
  EXPECT_FALSE(remote.SetLocalLimit(7));
  EXPECT_FALSE(remote.SetTempRoot(disk.Root(), 1));
  EXPECT_FALSE(remote.AbortAllJobs());
  remote.SetServerPool({"peer"});
  remote.SetEnvironment({{"TLM_ACCESS_TEST", "1"}});
  remote.Shutdown();
  EXPECT_NE(remote.GetQueueLimit(), 7U);
  EXPECT_NE(remote.GetLocalLimit(), 7U);
  EXPECT_FALSE(thread.IsStopped());
  EXPECT_EQ(std::getenv("TLM_ACCESS_TEST"), nullptr);
  StringList pool;
  remote.GetServerPool({pool});
  EXPECT_THAT(pool, IsEmpty());

  ServerProcess server(Environment{{"TSQOR_LOCAL_ADMIN", "1"}});
  EXPECT_TRUE(JobClient(server.Port()).SetQueueLimit(7));
  EXPECT_EQ(server.Stop(), 0);
}
}  // namespace
}  // namespace tlm::test
