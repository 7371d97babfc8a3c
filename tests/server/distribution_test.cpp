// Several job managers on one machine that share their jobs.
#include <csignal>
#include <random>

#include "support/job_client.h"

namespace tlm::test {
namespace {
using std::chrono::seconds;

// Hosts 127.0.0.2, 127.0.0.3 and so on, each with a port of its own that all of them know.
class Pool {
 public:
  Pool(std::size_t size, const Environment& others) : environment_(others) {
    for (std::size_t i = 0; i < size; ++i) ports_.push_back(FreePort());
    servers_.resize(size);
    for (std::size_t i = 0; i < size; ++i) Start(i);
  }

  static std::string Host(std::size_t i) { return "127.0.0." + std::to_string(i + 2); }
  StringList Hosts() const {
    StringList hosts;
    for (std::size_t i = 0; i < ports_.size(); ++i) hosts.push_back(Host(i));
    return hosts;
  }
  void Start(std::size_t i) {
    Environment environment = environment_;
    environment.insert({{"TSQOR_JMPORT", std::to_string(ports_[i])}, {"TSQOR_TRACE", "1"}});
    for (std::size_t other = 0; other < ports_.size(); ++other) {
      environment["TSQOR_JMPORT_" + Host(other)] = std::to_string(ports_[other]);
    }
    servers_[i] = std::make_unique<ServerProcess>(environment);
  }
  ServerProcess& operator[](std::size_t i) { return *servers_[i]; }
  void Signal(std::size_t i, int number) { kill(servers_[i]->Pid(), number); }

 private:
  const Environment environment_;
  std::vector<std::uint16_t> ports_;
  std::vector<std::unique_ptr<ServerProcess>> servers_;
};

// A client of the first server, whose jobs run in its directories, each with a file to read and one to write.
struct Distribution : ::testing::Test {
  Sandbox Here;
  std::optional<Pool> Servers;
  std::unique_ptr<JobClient> Client;

  // The environment names the ports of further hosts.
  void Begin(std::size_t size, const StringList& pool, const Environment& others = {}) {
    Servers.emplace(size, others);
    Client = std::make_unique<JobClient>((*Servers)[0].Port());
    Client->SetServerPool(pool);
  }

  Submission NewJob(const std::string& name, const std::string& text) {
    const std::string input = name + ".in", directory = Here.MakeDirectory(name) + "/";
    EXPECT_TRUE(Client->PutFiles({{{Client->Map(directory) + "/" + input, Here.Write(name + "/" + input, name)}}}));
    const std::string command = "do '" + text + "; cat " + input + " >" + name + ".out; echo 4 1 > qorjmmsg.$$'";
    Submission job = JobIn(directory, command, name, kRunDistributed);
    job.InputFile = input;
    return job;
  }
  std::uint64_t Submit(const std::string& name, const std::string& text = ":", std::uint64_t predecessor = 0) {
    Submission job = NewJob(name, text);
    job.Predecessor = predecessor;
    return Client->SubmitJob(job);
  }
  // Shell text that waits for a file of the test, or for the test's end.
  std::string Wait(const std::string& file) const {
    return "while test -d " + Here.Root() + " -a ! -e " + (Here / file) + "; do sleep 0.1; done";
  }
  // Until the file is made, the first server has as much to do as it takes.
  void Occupy(const std::string& file) {
    Submission job = NewJob("busy" + std::to_string(++busy_), Wait(file));
    job.RunClass = kRunAtOnce;
    Client->Await(Client->SubmitJob(job), {Running});
  }
  void ExpectResults(std::uint64_t handle, const std::string& name) {
    Client->Await(handle, {Finished});
    EXPECT_TRUE(Client->Fetch(handle)) << name;
    EXPECT_EQ(Here.Read(name + "/" + name + ".out"), name);
    Client->ResultsReceived(handle);
  }
  std::string Trace(std::size_t i = 0) { return (*Servers)[i].Output(); }
  std::size_t Runs(std::size_t i) { return Count(Trace(i), "Spawning job : "); }

 private:
  int busy_ = 0;
};

TEST_F(Distribution, TakesAJobToAPeerAndBringsAllOfItBack) {
  Begin(2, {Pool::Host(1)});
  ExpectResults(Submit("first"), "first");
  EXPECT_THAT(Trace(), HasSubstr("1 Dist Jobs\nDistributing job first to localhost\n"));
  EXPECT_EQ(Runs(1), 0U);

  Occupy("free");
  Client->SetListening(true);
  const std::uint64_t job = Submit("second", "echo one; " + Wait("go") + "; echo two");
  Client->Await(job, {Running});
  const std::uint64_t next = Submit("third", ":", job);
  EXPECT_TRUE(Eventually([&] { return Client->Output(job) == "one\n"; })) << "somebody listens";
  EXPECT_THAT(Trace(), AllOf(HasSubstr("Distributing job second\nTrying...127.0.0.3. BEST: 127.0.0.3\n"),
                             HasSubstr("Status of second now 3\n")));
  EXPECT_TRUE(
      Eventually([&] { return (*Servers)[0].HasPrinted("Distributing job third...predecessor not complete\n"); }));
  Here.Write("go");
  ExpectResults(job, "second");
  ExpectResults(next, "third");
  EXPECT_EQ(Runs(1), 2U);

  const std::uint64_t verbose = Submit("verbose", "head -c 40000000 /dev/zero");
  Client->Await(verbose, {Finished});
  std::string tail;
  Client->ReadOutput(verbose, 39999998, tail);
  EXPECT_EQ(tail, std::string(2, '\0')) << "more than one answer can hold";

  const std::uint64_t failing = Submit("fails", "exit 1"), dependant = Submit("waits", ":", failing);
  Client->Await(failing, {Aborted});
  Client->Await(dependant, {Aborted});
  EXPECT_EQ(JobClient((*Servers)[1].Port()).Jobs().size(), 1U) << "only the one that failed stays there";
  Here.Write("free");
}

TEST_F(Distribution, SharesABurstAmongServersThatAllNameEachOther) {
  Begin(3, {});
  for (std::size_t i = 0; i < 3; ++i) {
    JobClient client((*Servers)[i].Port());
    client.SetServerPool((*Servers).Hosts());
    EXPECT_TRUE(client.SetLocalLimit(2));
  }
  std::vector<std::unique_ptr<JobClient>> clients;
  std::vector<std::uint64_t> jobs;
  for (std::size_t i = 0; i < 3; ++i) {
    Client = std::make_unique<JobClient>((*Servers)[i].Port());
    for (int k = 0; k < 10; ++k) jobs.push_back(Submit("job" + std::to_string(jobs.size()), "sleep 0.3"));
    clients.push_back(std::move(Client));
  }
  for (std::size_t i = 0; i < 30; ++i) {
    Client.swap(clients[i / 10]);
    ExpectResults(jobs[i], "job" + std::to_string(i));
    Client.swap(clients[i / 10]);
  }
  for (std::size_t i = 0; i < 3; ++i) EXPECT_GE(Runs(i), 3U) << i;
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ((*Servers)[i].Stop(), 0);
}

TEST_F(Distribution, PlacesTheJobsOfALostPeerAgain) {
  Begin(2, {Pool::Host(1)});
  Occupy("free");
  const std::uint64_t job = Submit("job", Wait("go")), removed = Submit("removed");
  Client->Await(job, {Running});
  EXPECT_TRUE(Client->RemoveJob(removed)) << "it waits, and is not placed any more";
  (*Servers)[1].Kill();
  EXPECT_TRUE(Eventually([&] { return Client->Get(job).Status == Queued; })) << "given up";
  Servers->Start(1);
  Client->Await(job, {Running});
  EXPECT_EQ(Client->Get(removed).Status, std::uint32_t{Aborted});
  Here.Write("go");
  Client->Await(job, {Finished});

  const std::uint64_t follower = Submit("follower", "echo $$ >" + (Here / "pid") + "; sleep 600", job);
  Client->Await(follower, {Running});
  EXPECT_TRUE(Eventually([&] { return Here.Read("pid").ends_with('\n'); }));
  EXPECT_TRUE(Client->RemoveJob(job));
  Client->Await(follower, {Aborted});
  EXPECT_TRUE(JobTest::IsGone(std::stoi(Here.Read("pid")))) << "its peer was told";
  Here.Write("free");
}

TEST_F(Distribution, FetchesResultsAgainWhoseTransferWasBrokenOff) {
  Begin(2, {Pool::Host(1)});
  Occupy("free");
  const std::uint64_t job = Submit("large", "truncate -s 400M large.big");
  const std::string directory = Client->Map(Here.Root() + "/large/");
  EXPECT_TRUE(Eventually([&] { return std::filesystem::exists(directory + "/large.big.tmp"); }));
  (*Servers)[1].Kill();
  EXPECT_FALSE(std::filesystem::exists(directory + "/large.big")) << "nothing takes its place before it is whole";
  Servers->Start(1);
  Client->Await(job, {Finished});
  EXPECT_EQ(std::filesystem::file_size(directory + "/large.big"), 400U << 20);
  (*Servers)[1].Kill();
  EXPECT_TRUE(Client->Fetch(job)) << "what has come needs the peer no more";
  EXPECT_EQ(std::filesystem::file_size(Here / "large/large.big"), 400U << 20);
  Servers->Start(1);

  const std::uint64_t left = Submit("left", Wait("go"));
  Client->Await(left, {Running});
  EXPECT_TRUE(Client->AbortAllJobs());
  Here.Write("go");
  ExpectResults(left, "left");  // an abort of all is for the jobs that run here
}

TEST_F(Distribution, GoesOnBesidePeersThatDoNotAnswerOrAnswerNonsense) {
  RawListener silent, mad;
  Begin(2, {"127.0.0.8", "127.0.0.9", "nowhere.invalid", Pool::Host(1)},
        {{"TSQOR_JMPORT_127.0.0.8", std::to_string(silent.Port())},
         {"TSQOR_JMPORT_127.0.0.9", std::to_string(mad.Port())}});
  Occupy("free");
  const std::uint64_t job = Submit("job");
  RawConnection waiting = silent.Accept();
  const std::string hello = waiting.ReceiveRecord();
  EXPECT_EQ(hello.substr(4, 40), Call(1).substr(4) + Text("tlm2010").substr(0, 4));
  RawConnection nonsense = mad.Accept();
  nonsense.Send(std::string(1000, '\x7F'));
  for (int i = 0; i < 20; ++i) EXPECT_LT(TimeOf([&] { Client->GetJobCount(); }), seconds(2));
  ExpectResults(job, "job");
  ExpectResults(Submit("next"), "next");
  EXPECT_EQ(Runs(1), 2U);
  EXPECT_THAT(Trace(), HasSubstr("!nowhere.invalid!127.0.0.3. BEST: 127.0.0.3\n"));
  Here.Write("free");
  EXPECT_LT(TimeOf([&] { EXPECT_EQ((*Servers)[0].Stop(), 0); }), seconds(5));
}

// A peer that is scripted: what it is asked, in which order, and what its answers lead to.
TEST_F(Distribution, AsksAPeerInAnOrderThatIsAlwaysTheSame) {
  RawListener listener;
  Begin(1, {"127.0.0.9"}, {{"TSQOR_JMPORT_127.0.0.9", std::to_string(listener.Port())}});
  Occupy("free");
  const std::uint64_t job = Submit("job");
  RawConnection peer = listener.Accept();
  const auto expect = [&peer](std::uint32_t number, const std::string& results) {
    const std::string call = peer.ReceiveRecord();
    ASSERT_GE(call.size(), 40U);
    EXPECT_EQ(call.substr(20, 4), U32(number));
    peer.Send(Record(Reply(results)));
  };
  const auto state = [](std::uint32_t status, std::uint32_t flags, std::uint32_t progress) {
    std::string task;
    for (int i = 0; i < 8; ++i) task += Text("");
    task += U64(0) + Text("") + U32(0) + U32(0) + U64(0) + U32(status) + U32(flags) + U32(0) + U64(0) + U64(0) + U64(0);
    return task + U32(0) + U32(progress) + U32(2) + U32(0) + U32(0) + U64(0) + U64(0) + U64(1) + U32(1);
  };
  expect(1, U32(0));   // Hello; its answer is not looked at
  expect(29, U32(0));  // GetJobCount
  expect(27, U32(1));  // GetLocalLimit
  expect(4, Text("/there") + U32(0));
  expect(5, U32(0));   // PutFiles, of which neither
  expect(2, U64(44));  // SubmitJob
  for (std::uint32_t progress : {10U, 20U}) {
    expect(0, "");
    expect(23, state(kProgressNotice, 0, progress - 1));  // a notice is not its state
    expect(23, state(Running, 0, progress));
    expect(0, "");
    EXPECT_TRUE(Eventually([&] { return Client->Get(job).Progress == static_cast<std::int32_t>(progress); }));
  }
  // The manifest speaks of a file that is not there.
  const std::string list = U32(1) + Text("/tmp/tlm-nowhere/job.crc") + Text("x") + U32(0) + U32(0);
  expect(0, "");
  expect(23, state(Running, 1, 30));
  expect(0, "");
  expect(24, list + U32(1));
  expect(35, "");  // nothing that can be read is missing
  expect(0, "");
  expect(23, state(kProgressNotice, 0, 99));
  const std::string none = state(0, 0, 0);
  expect(23, none.substr(0, none.size() - 4) + U32(0));  // it has left by that answer: it had finished
  expect(0, "");
  expect(0, "");
  Client->Await(job, {Finished});
  EXPECT_EQ(Client->Get(job).ResultFlags, std::uint32_t{kResultsAvailable});
  Here.Write("free");
}

// Peers are killed, stopped and started again while jobs flow. TLM_CHAOS_SECONDS makes it longer, TLM_CHAOS_SEED other.
TEST_F(Distribution, LosesNoJobWhateverHappensToThePeers) {
  const auto setting = [](const char* name, int byDefault) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : byDefault;
  };
  std::mt19937 random(static_cast<unsigned>(setting("TLM_CHAOS_SEED", 1)));
  Begin(3, {Pool::Host(1), Pool::Host(2)});
  std::map<std::uint64_t, std::string> jobs;
  const auto end = std::chrono::steady_clock::now() + seconds(setting("TLM_CHAOS_SECONDS", 8));
  while (std::chrono::steady_clock::now() < end) {
    const std::string name = "job" + std::to_string(jobs.size());
    jobs[Submit(name, "sleep 0." + std::to_string(random() % 10))] = name;
    const std::size_t peer = 1 + random() % 2;
    switch (random() % 8) {
      case 0:
        (*Servers)[peer].Kill();
        Servers->Start(peer);
        break;
      case 1:
        Servers->Signal(peer, SIGSTOP);
        break;
      default:
        Servers->Signal(peer, SIGCONT);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 400));
  }
  for (std::size_t peer : {1U, 2U}) Servers->Signal(peer, SIGCONT);
  for (const auto& [handle, name] : jobs) ExpectResults(handle, name);
}
}  // namespace
}  // namespace tlm::test
