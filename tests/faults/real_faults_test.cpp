// What really happens to a server: a full disk, no descriptors, clients that come and go at the worst moment.
#include <unistd.h>

#include "support/job_client.h"

namespace tlm::test {
namespace {
// The server, started by a shell that arranges something first.
struct ArrangedServer : ::testing::Test {
  Sandbox Work;
  ServerProcess Server;

  explicit ArrangedServer(const std::string& shellText) : Server({}, "debug", Script(shellText)) {}

  std::string Script(const std::string& shellText) const {
    Work.WriteScript("bin/tlmjm", shellText);
    return Work / "bin/tlmjm";
  }
  Submission NewJob(const std::string& command) const {
    Submission job = JobIn(Work.Root() + "/", "do '" + command + "; echo 4 1 >qorjmmsg.$$'", "beam");
    job.InputStem = "deck";
    return job;
  }
};

constexpr std::size_t kDisk = 4 << 20;

struct FullDisk : ArrangedServer {
  std::string Filler = Inside(Server.Root() / "filler");

  FullDisk()
      : ArrangedServer(
            "if unshare --map-root-user --mount true; then exec unshare --map-root-user --mount sh -c '"
            "mount -t tmpfs -o size=4m tmpfs \"$TSQOR_TMP\" && exec " TLMJM
            " \"$@\"' sh \"$@\"; fi\n"
            "exec " TLMJM " \"$@\"\n") {}
  void SetUp() override {
    if (std::filesystem::space(Inside(Server.Root().Root())).capacity != kDisk) GTEST_SKIP() << "no mounts of its own";
  }

  // As the server sees it.
  std::string Inside(const std::string& path) const { return "/proc/" + std::to_string(Server.Pid()) + "/root" + path; }
  void Leave(std::size_t room) const {
    const std::size_t free = std::filesystem::space(Inside(Server.Root().Root())).available;
    std::ofstream(Filler, std::ios::binary) << std::string(free - std::min(free, room), 'x');
  }
};

TEST_F(FullDisk, IsToldAtWhateverStepItFillsUpAndCostsNothingThatStood) {
  const std::string former(60'000, 'f'), fresh(70'000, 'n');
  const std::string old = Work.Write("former", former), next = Work.Write("fresh", fresh);
  JobClient client(Server.Port());
  const std::string there = client.Map(Work.Root() + "/");
  const std::string deck = Inside(there + "/deck");
  const std::string records = Inside(Server.Root() / "tlm2010.sta");
  int refused = 0, ended = 0;
  for (std::size_t room = 0; room < 300'000; room = std::max<std::size_t>(4096, room * 2)) {
    ASSERT_TRUE(client.PutFiles({{{there + "/deck", old}}})) << room;
    Leave(room);
    client.Map("c:\\" + std::to_string(room) + "\\");
    const bool stored = client.PutFiles({{{there + "/deck", next}, {there + "/small", old}}});
    refused += stored ? 0 : 1;
    const std::string content = ReadFile(deck);
    EXPECT_TRUE(content == fresh || (content == former && !stored)) << room;
    const std::uint64_t job = client.SubmitJob(NewJob("head -c 50000 /dev/zero >beam.dat && cp beam.dat beam.two"));
    const Task end = client.AwaitEnd(job);
    const bool sent = client.Fetch(job);
    EXPECT_EQ(sent, end.Status == Finished) << room;
    ended += sent ? 1 : 0;
    if (sent) {
      EXPECT_EQ(Work.Read("beam.dat").size() + Work.Read("beam.two").size(), 100'000U) << room;
    }
    client.RemoveJob(job);
    client.ReleaseJob(job);
    const std::string table = ReadFile(records);
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n') % 3, 0) << table;
    EXPECT_TRUE(table.empty() || table.ends_with('\n'));
    std::filesystem::remove(Filler);
    for (const char* name : {"/beam.dat", "/beam.two", "/small"}) std::filesystem::remove(Inside(there + name));
  }
  EXPECT_GT(refused, 3);
  EXPECT_GT(ended, 0);
  EXPECT_TRUE(client.PutFiles({{{there + "/deck", next}}}));
  EXPECT_EQ(client.AwaitEnd(client.SubmitJob(NewJob("true"))).Status, std::uint32_t{Finished});
}

struct FewDescriptors : ArrangedServer {
  FewDescriptors() : ArrangedServer("ulimit -n 32; exec " TLMJM " \"$@\"\n") {}
};

TEST_F(FewDescriptors, AreEnoughForWhoIsServedAndAFailureForWhatIsNot) {
  JobClient client(Server.Port());
  const FileTransferList files{{{client.Map(Work.Root() + "/") + "/deck", Work.Write("deck", "content")}}};
  EXPECT_TRUE(client.PutFiles(files));
  EXPECT_EQ(client.AwaitEnd(client.SubmitJob(NewJob("true"))).Status, std::uint32_t{Finished});
  std::vector<RawConnection> crowd;
  for (int i = 0; i < 28; ++i) crowd.emplace_back(Server.Port());
  ASSERT_TRUE(Eventually([&] { return Server.OpenDescriptors() == 32; }));
  EXPECT_FALSE(client.PutFiles(files));
  EXPECT_EQ(client.AwaitEnd(client.SubmitJob(NewJob("true"))).Status, std::uint32_t{LaunchFailed});
  crowd.clear();
  EXPECT_TRUE(Eventually([&] { return client.PutFiles(files); }));
  const std::uint64_t job = client.SubmitJob(NewJob("echo data >beam.dat"));
  EXPECT_EQ(client.AwaitEnd(job).Status, std::uint32_t{Finished});
  EXPECT_TRUE(client.Fetch(job));
  EXPECT_EQ(Work.Read("beam.dat"), "data\n");
}

// -- clients that go
constexpr std::size_t kLarge = 8'000'000;  // more than fits between the two

TEST_F(JobTest, ResultsAreOfferedAgainAtWhateverByteTheirReceiverGoes) {
  Work.Write("here/beam.dat", "former");
  Client.Map(Work / "here/");
  Submission submission =
      NewJob(Succeed("echo data >beam.dat; head -c " + std::to_string(kLarge) + " /dev/zero >beam.two"));
  submission.WorkDir = Work / "here/";
  submission.ResultStem = "beam";
  const std::uint64_t job = Client.SubmitJob(submission);
  Client.Await(job, {Finished});
  Client.Disconnect();
  const std::ptrdiff_t descriptors = Server.OpenDescriptors();
  const auto ask = [&] {
    RawConnection client(Server.Port());
    EXPECT_EQ(client.Ask(Call(1, Text("tlm2010") + Text("desk") + U32(0))), Reply(U32(1)));
    EXPECT_TRUE(Eventually([&] { return client.Ask(Call(30, U64(job))) == Reply(U32(1)); })) << "it is still another's";
    client.Send(Record(Call(24, U64(job) + U32(0))));
    return client;
  };
  const auto receiveAll = [](RawConnection client) {
    std::pair<std::string, std::size_t> records;
    for (; records.first.size() < kLarge; ++records.second) records.first += client.ReceiveRecord();
    return records;
  };
  const auto whole = receiveAll(ask());
  const std::size_t all = 4 * whole.second + whole.first.size(), each = 300;  // of the bytes at both ends
  for (std::size_t cut = 0; cut <= all; cut += cut < each || cut + each >= all ? 1 : all / 16) {
    RawConnection client = ask();
    client.Receive(cut);
    client.CloseAbruptly();
  }
  EXPECT_TRUE(receiveAll(ask()) == whole);
  EXPECT_EQ(Work.Read("here/beam.dat"), "former");
  EXPECT_TRUE(Eventually([&] { return Server.OpenDescriptors() <= descriptors; })) << Server.OpenDescriptors();
}

TEST_F(JobTest, AMinuteOfFiveHundredConnectionsASecondHoldsNobodyUp) {
  const std::uint64_t job = Submit(Do(Wait("pid")));
  AwaitNumber("pid");
  const std::ptrdiff_t descriptors = Server.OpenDescriptors();
  const std::size_t memory = Server.PeakMemory();
  const auto start = std::chrono::steady_clock::now();
  auto lookAgain = start;
  int connections = 0;  // fewer than wanted on a machine that is busy otherwise
  for (auto time = start; time < start + std::chrono::minutes(1); time = std::chrono::steady_clock::now()) {
    std::this_thread::sleep_until(start + std::chrono::milliseconds(2) * connections);
    RawConnection caller(Server.Port());
    const int kind = ++connections % 4;
    if (kind == 1) caller.Send(Record(Call(0)));
    if (kind == 2) caller.Send(Record(Call(0)).substr(0, connections / 4 % 44));
    if (kind != 3) caller.CloseAbruptly();
    if (time >= lookAgain) {
      lookAgain += std::chrono::seconds(1);
      EXPECT_LT(TimeOf([&] { EXPECT_EQ(Client.Get(job).Status, std::uint32_t{Running}); }), std::chrono::seconds(5));
    }
  }
  RecordProperty("Connections", connections);
  EXPECT_GT(connections, 1000);
  Work.Write("stop");
  Client.AwaitEnd(job);
  EXPECT_TRUE(Eventually([&] { return Server.OpenDescriptors() <= descriptors; })) << Server.OpenDescriptors();
  EXPECT_LT(Server.PeakMemory(), memory + (32 << 20));
}
}  // namespace
}  // namespace tlm::test
