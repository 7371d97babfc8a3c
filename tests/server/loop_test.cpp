// The real server among many connections, slow ones, broken ones and hostile ones.
#include <chrono>
#include <deque>
#include <random>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>

#include "platform/limits.h"
#include "support/eventually.h"
#include "support/server_process.h"

namespace tlm::test {
namespace {
constexpr std::size_t kMegabyte = 1 << 20;

constexpr std::uint32_t kNull = 0, kHello = 1, kPutFiles = 5, kRequestResults = 24, kRequiredLevel = 45, kListJobs = 47;
constexpr std::uint32_t kLargestRecord = 0x44000000, kLast = 0x80000000;

struct ServerLoop : ::testing::Test {
  ServerProcess Server;
  RawConnection Healthy{Server.Port()};

  explicit ServerLoop(const Environment& environment = {{"ORPC_TRACE", "1"}}) : Server(environment) {}

  bool Serves() { return Healthy.Ask(Call(kNull)) == Reply(); }
  // Once it is true, all earlier connections have been accepted, too.
  bool ServesNewcomers() const { return RawConnection(Server.Port()).Ask(Call(kNull)) == Reply(); }
  // Clock ticks of its own and of the system on its behalf.
  long ProcessorTime() const {
    std::ifstream fields("/proc/" + std::to_string(Server.Pid()) + "/stat");
    std::string skipped;
    for (int field = 1; field < 14; ++field) fields >> skipped;
    long user = 0, system = 0;
    fields >> user >> system;
    return user + system;
  }
  // A request for results whose reply carries the server's file.
  std::string CallForFile(const std::string& source) const {
    const std::string head = Text(Server.Root().Path("scratch")) + Text(source) + U32(0);
    return Call(kRequestResults, U64(4) + U32(1) + head + U32(0));
  }
  std::string SparseFile(std::size_t size) const {
    std::string file = Server.Root().Write("large");
    std::filesystem::resize_file(file, size);
    return file;
  }
  // A call that stops before the bytes of its only chunk.
  std::string HalfTransfer(int number) const {
    const std::string name = Server.Root().Path("half" + std::to_string(number));
    return Record(Call(kPutFiles, U32(1) + Text(name) + Text("") + U32(0) + U32(4)));
  }
};

TEST_F(ServerLoop, AThousandConnectionsAreServed) {
  platform::RaiseDescriptorLimit();
  std::deque<RawConnection> all;
  for (int i = 0; i < 1000; ++i) {
    all.emplace_back(Server.Port());
    ASSERT_TRUE(i % 8 != 7 || ServesNewcomers());  // lets the server keep up with its short queue of new ones
  }
  for (RawConnection* one : {&all.front(), &all[500], &all.back()}) EXPECT_EQ(one->Ask(Call(kNull)), Reply());
}

TEST_F(ServerLoop, WithoutDescriptorsItRestsUntilThereAreSomeAgain) {
  ASSERT_TRUE(Serves());
  const auto few = static_cast<rlim_t>(Server.OpenDescriptors() + 4);
  const rlimit limit{few, few};
  ASSERT_EQ(prlimit(Server.Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  std::deque<RawConnection> all;
  for (int i = 0; i < 10; ++i) all.emplace_back(Server.Port());
  ASSERT_TRUE(Eventually([&] { return Server.OpenDescriptors() == static_cast<std::ptrdiff_t>(few); }));
  const long before = ProcessorTime();
  EXPECT_FALSE(all.back().IsReadableWithin(std::chrono::seconds(1)));
  EXPECT_LT(ProcessorTime() - before, sysconf(_SC_CLK_TCK) / 4) << "it spins";
  EXPECT_TRUE(Serves());
  while (all.size() > 3) all.pop_front();
  for (RawConnection& late : all) EXPECT_EQ(late.Ask(Call(kNull)), Reply());
}

TEST_F(ServerLoop, EachPassServesOneCallOfTheEarliestConnectionThatIsReady) {
  RawConnection early(Server.Port()), late(Server.Port());
  for (RawConnection* one : {&early, &late}) EXPECT_EQ(one->Ask(Call(kNull)), Reply());
  const auto report = [](std::uint64_t level) { return Record(Call(kRequiredLevel, U64(0) + U64(0) + U64(level))); };
  kill(Server.Pid(), SIGSTOP);
  waitpid(Server.Pid(), nullptr, WUNTRACED);
  late.Send(report(3));
  early.Send(report(1) + report(2));
  kill(Server.Pid(), SIGCONT);
  const std::string line = "plmjm - QorJMServer::Dispatch - Recieving 0 0 ";
  EXPECT_TRUE(Eventually([&] { return Server.HasPrinted(line + "1\n" + line + "2\n" + line + "3\n"); }))
      << Server.Output();
}

// -- large replies
TEST_F(ServerLoop, ASlowReaderOfALargeReplyHoldsNobodyUp) {
  constexpr std::size_t kSize = 300 * kMegabyte;
  RawConnection reader(Server.Port(), Record(CallForFile(SparseFile(kSize))));
  ASSERT_TRUE(reader.IsReadableWithin(kPatience));
  for (int i = 0; i < 50; ++i) ASSERT_LT(TimeOf([&] { EXPECT_TRUE(Serves()); }), std::chrono::seconds(2));
  const std::string names = Text(Server.Root() / "scratch") + Text(Server.Root() / "large");
  const std::size_t whole = 24 + 4 + names.size() + 4 + kSize / 4096 * 4100 + 4 + 4;
  std::size_t got = 0;
  std::string last;
  while (got < whole) {
    last = reader.ReceiveRecord();
    got += last.size();
  }
  EXPECT_EQ(got, whole);
  EXPECT_EQ(last.substr(last.size() - 8), U32(0) + U32(0)) << "the end of the file, and the result";
  EXPECT_LT(Server.PeakMemory(), 40 * kMegabyte);
}

TEST_F(ServerLoop, AReaderThatSendsMoreOrGoesAwayLosesItsConnection) {
  const std::string call = Record(CallForFile(SparseFile(300 * kMegabyte)));
  RawConnection impatient(Server.Port(), call);
  impatient.Receive(4);
  impatient.Send(Record(Call(kNull)));
  const RawConnection hasty(Server.Port(), call + Record(Call(kNull)));
  const std::string line = ": ORpcThread::Send::blocked ERROR: Resource temporarily unavailable(11)\n";
  EXPECT_TRUE(Eventually([&] { return Server.CountPrinted(line) == 2; }));
  RawConnection leaving(Server.Port(), call);
  leaving.Receive(4);
  leaving.CloseAbruptly();
  EXPECT_TRUE(Eventually([&] { return Server.HasPrinted(": ORpcThread::Send::send ERROR: "); }));
  EXPECT_TRUE(Serves());

  RawConnection endless(Server.Port(), Record(CallForFile(SparseFile(std::size_t{1} << 42))));
  endless.Receive(4);
  const RawConnection half(Server.Port(), HalfTransfer(1));
  EXPECT_EQ(Server.Stop(), 0) << "a reply without an end does not hold it up";
}

TEST_F(ServerLoop, AConnectionMayBreakAtAnyByteOfACall) {
  ASSERT_TRUE(Serves());
  const std::ptrdiff_t descriptors = Server.OpenDescriptors();
  Server.Root().Write("kept", "former");
  const std::string files = U32(1) + Text(Server.Root().Path("kept")) + Text("") + U32(0) + Text("new") + U32(0);
  for (const std::string& call : {Record(Call(kHello, Text("QOR100") + Text("host") + U32(0))),
                                  Record(Call(kPutFiles, files)).substr(0, 44 + files.size() - 1)}) {
    for (std::size_t cut = 0; cut <= call.size(); ++cut) {
      RawConnection broken(Server.Port(), call.substr(0, cut));
      if (cut % 2 == 0) broken.CloseAbruptly();
      ASSERT_TRUE(cut % 8 != 0 || ServesNewcomers()) << cut;
    }
  }
  EXPECT_TRUE(Eventually([&] { return Serves() && Server.OpenDescriptors() == descriptors; }))
      << Server.OpenDescriptors();
  EXPECT_EQ(Server.Root().Read("kept"), "former");
}

// -- hostile ones
TEST_F(ServerLoop, PromisesOfManyBytesTakeNoMemory) {
  ASSERT_TRUE(Serves());
  const std::size_t before = Server.PeakMemory();
  std::deque<RawConnection> promising;
  for (int i = 0; i < 32; ++i) {
    promising.emplace_back(Server.Port(), U32(0x80000000 | kLargestRecord) + "few");
    promising.emplace_back(Server.Port(), Record(Call(kListJobs, U32(0xFFFFFFFF) + U64(1))));
    promising.emplace_back(Server.Port(), Record(Call(kRequestResults, U64(4) + U32(0xFFFFFFFF))));
    ASSERT_TRUE(ServesNewcomers());
  }
  EXPECT_LT(Server.PeakMemory(), before + 8 * kMegabyte);
}

TEST_F(ServerLoop, ARecordOverTheLimitIsRefusedAlsoWhenItComesInFragments) {
  for (const std::string& bytes : {U32(kLargestRecord + 1), U32(4) + "abcd" + U32(0x80000000 | (kLargestRecord - 3))}) {
    EXPECT_TRUE(RawConnection(Server.Port(), bytes).IsClosedByPeer());
  }
}

TEST_F(ServerLoop, RandomBytesDoNoHarm) {
  std::mt19937 random(20240517);
  const auto bytes = [&random](std::size_t most) {
    std::string text(random() % (most + 1), '\0');
    for (char& byte : text) byte = static_cast<char>(random());
    return text;
  };
  // Those that only read, or fail for want of a job.
  const std::uint32_t harmless[] = {1,  2,  3,  4,  7,  8,  10, 12, 14, 15, 16, 19, 20, 21, 22, 23, 25, 27,
                                    29, 30, 31, 32, 33, 34, 35, 36, 38, 39, 41, 42, 44, 45, 47, 48, 49, 50};
  for (int i = 0; i < 200; ++i) {
    RawConnection hostile(Server.Port());
    try {
      for (int calls = 0; calls < 3; ++calls) {
        if (i % 4 == 0) hostile.Send(bytes(300));
        hostile.Send(Record(Call(harmless[random() % std::size(harmless)], bytes(200))));
      }
    } catch (const std::runtime_error&) {  // The server has had enough of it.
    }
    ASSERT_TRUE(ServesNewcomers()) << i;
  }
}

TEST_F(ServerLoop, CallsThatStopHalfWayWaitBeneathThoseThatGoOn) {
  std::deque<RawConnection> waiting;
  for (int i = 0; i < 300; ++i) {
    waiting.emplace_back(Server.Port(), i % 2 == 0 ? HalfTransfer(i) : Record(Call(kNull)).substr(0, 20));
    ASSERT_TRUE(i % 8 != 7 || ServesNewcomers());
  }
  EXPECT_TRUE(Serves());
  EXPECT_TRUE(Eventually([&] { return Server.Root().Has("half298.tmp.lci"); })) << "others see the lock";
  const std::string rest[] = {Record("data") + Record(U32(0)), Record(Call(kNull)).substr(20)};
  for (int i = 0; i < 300; ++i) waiting[i].Send(rest[i % 2]);
  for (int i = 0; i < 300; ++i) EXPECT_EQ(waiting[i].ReceiveRecord(), i % 2 == 0 ? Reply(U32(1)) : Reply()) << i;
  EXPECT_EQ(Server.Root().Read("half298"), "data");
}

TEST_F(ServerLoop, AnUploadThatWaitsDoesNotCostADownloadItsConnection) {
  RawConnection uploading(Server.Port(), HalfTransfer(1));
  ASSERT_TRUE(ServesNewcomers());
  constexpr std::size_t kSize = 64 * kMegabyte;
  RawConnection reader(Server.Port(), Record(CallForFile(SparseFile(kSize))));
  ASSERT_TRUE(reader.IsReadableWithin(kPatience));
  uploading.Send(Record("data" + U32(0)));
  EXPECT_TRUE(Serves());
  for (std::size_t got = 0; got < kSize;) got += reader.ReceiveRecord().size();
  EXPECT_EQ(uploading.ReceiveRecord(), Reply(U32(1)));
}

TEST_F(ServerLoop, ACallInManySmallPiecesHoldsNobodyUp) {
  const auto times = [](int count, const std::string& text) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
  };
  const std::string fragments = U32(4) + U32(1'500'000) + times(1'500'000, U32(1) + "y") + U32(kLast);
  const std::string name = Server.Root().Path("pieces");
  const std::string head = Record(Call(kPutFiles, U32(1) + Text(name) + Text("") + U32(0) + U32(8 * kMegabyte)));
  const std::string pieces =
      Record(std::string(8 * kMegabyte, 'x')) + fragments + times(500'000, Record(U32(4) + "zzzz")) + Record(U32(0));
  RawConnection busy(Server.Port(), head);
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  auto longest = Clock::duration::zero();
  std::thread sender([&] { busy.Send(pieces); });
  while (!busy.IsReadableWithin(std::chrono::milliseconds(0))) {
    const auto asked = Clock::now();
    EXPECT_TRUE(Serves());
    longest = std::max(longest, Clock::now() - asked);
  }
  const auto total = Clock::now() - begin;
  sender.join();
  EXPECT_LT(longest, total / 4);
  EXPECT_EQ(busy.ReceiveRecord(), Reply(U32(1)));
  EXPECT_EQ(std::filesystem::file_size(name), 8 * kMegabyte + 1'500'000 + 4 * 500'000);
}

TEST_F(ServerLoop, UrgentDataHidesNoCall) {
  RawConnection urgent(Server.Port(), Record(Call(kNull, "", 1)));
  EXPECT_EQ(urgent.ReceiveRecord(), Reply("", 0, 1));
  kill(Server.Pid(), SIGSTOP);
  urgent.Send(Record(Call(kNull, "", 2)));
  EXPECT_EQ(send(urgent.Descriptor(), "!", 1, MSG_OOB), 1);
  urgent.Send(Record(Call(kNull, "", 3)));
  kill(Server.Pid(), SIGCONT);
  for (const std::uint32_t xid : {2U, 3U}) EXPECT_EQ(urgent.ReceiveRecord(), Reply("", 0, xid));
}

struct ImpatientLoop : ServerLoop {
  ImpatientLoop() : ServerLoop({{"ORPC_TRACE", "1"}, {"ORPC_STALL_LIMIT", "1"}}) {}
};

TEST_F(ImpatientLoop, CallsThatHoldOthersUpForTooLongLoseTheirConnections) {
  RawConnection alone(Server.Port(), HalfTransfer(1));
  EXPECT_FALSE(alone.IsReadableWithin(std::chrono::milliseconds(1500))) << "it holds nobody up";
  RawConnection silent(Server.Port(), HalfTransfer(2));
  EXPECT_TRUE(ServesNewcomers());
  alone.Send(Record("data" + U32(0)));
  EXPECT_EQ(alone.ReceiveRecord(), Reply(U32(1)));
  EXPECT_TRUE(silent.IsClosedByPeer());
  EXPECT_TRUE(Server.HasPrinted(": RpcSockIO::Read::recv ERROR: Connection timed out(110)\n"));

  constexpr std::size_t kSize = 64 * kMegabyte;
  const std::string call = Record(CallForFile(SparseFile(kSize)));
  RawConnection first(Server.Port(), call);
  ASSERT_TRUE(first.IsReadableWithin(kPatience));
  RawConnection second(Server.Port(), call);
  ASSERT_TRUE(second.IsReadableWithin(kPatience)) << "it is on top of the first";
  for (std::size_t got = 0; got < kSize;) got += first.ReceiveRecord().size();
  const std::string line = ": ORpcThread::Send::send ERROR: Connection timed out(110)\n";
  EXPECT_TRUE(Server.HasPrinted(line));

  std::deque<RawConnection> stalled;
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(stalled.emplace_back(Server.Port(), call).IsReadableWithin(kPatience));
  }
  const auto haveGone = [&] {
    return Server.CountPrinted(line) == 12;
  };  // all but the lowest, which is in nobody's way
  EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Eventually(haveGone)); }), std::chrono::seconds(6)) << "and not one by one";
  EXPECT_TRUE(Serves());
}
}  // namespace
}  // namespace tlm::test
