// Clients that have gone without a word, and how they are found.
#include "rpc/orpcerror.h"
#include "support/job_client.h"

namespace tlm::test {
namespace {
constexpr std::uint32_t kProxyProgram = 0x514A4D52;

struct Orphans : JobTest {
  Orphans() : JobTest(Environment{{"TSQOR_TRACE", "1"}}) {}

  // A client that can be called back. Its jobs run in the test's directory.
  struct Desktop {
    RawListener Listener;
    QorJMClient Caller;

    explicit Desktop(std::uint16_t port) {
      Caller.Connect("127.0.0.1", port);
      Caller.Hello("tlm2010", "127.0.0.1", Listener.Port());
    }
  };
  std::string Deleted(const Desktop& desktop) const {
    return "Deleted orphaned session addr[127.0.0.1] port[" + std::to_string(desktop.Listener.Port()) + "]\n";
  }
  void Arrive() const { JobClient newcomer(Server.Port()); }
};

TEST_F(Orphans, AreFoundByAPingWhenTheNextClientArrives) {
  Desktop desktop(Server.Port());
  Submission submission = NewJob(Do(Wait("running")));
  const std::uint64_t job = desktop.Caller.SubmitJob(submission);
  Arrive();
  RawConnection back = desktop.Listener.Accept();
  for (std::uint32_t ping = 0; ping < 3; ++ping) {
    Arrive();
    const std::string call = back.ReceiveRecord();
    ASSERT_EQ(call.size(), 40U);
    EXPECT_EQ(call.substr(4), Call(0, "", 0, kProxyProgram).substr(4));
    const std::string reply = Record(Reply("", 0, ping));
    if (ping == 1) back.Send(reply + reply);  // or not: replies are not awaited
  }
  EXPECT_NE(Client.Get(job).ClientPort, 0U);
  back.CloseAbruptly();
  EXPECT_TRUE(Eventually([&] { return Arrive(), Server.HasPrinted(Deleted(desktop)); }));
  EXPECT_EQ(Client.Get(job).ClientPort, 0U) << "its jobs belong to nobody now";
  EXPECT_THAT(Server.Output(), HasSubstr("Disowning " + submission.ResultStem + "\n"));
  EXPECT_THROW(desktop.Caller.SubmitJob(submission), OrpcSocketError) << "its connection is a new client's now";
}

TEST_F(Orphans, MayBeInTheMiddleOfACall) {
  RawListener listener;
  RawConnection busy(Server.Port());
  EXPECT_EQ(busy.Ask(Call(1, Text("tlm2010") + Text("127.0.0.1") + U32(listener.Port()))), Reply(U32(1)));
  Arrive();
  RawConnection back = listener.Accept();
  busy.Send(Record(Call(5, U32(1) + Text(Work / "half") + Text("") + U32(0) + U32(4))));
  back.CloseAbruptly();
  EXPECT_TRUE(Eventually([&] { return Arrive(), Server.HasPrinted("Deleted orphaned session"); }));
  busy.Send(Record("data" + U32(0)));
  EXPECT_TRUE(busy.IsClosedByPeer());
  Arrive();
}

TEST_F(Orphans, WhoseCallbackCannotBeReachedCostTheNewcomerHisConnection) {
  auto listener = std::make_unique<RawListener>();
  JobClient desktop(Server.Port());
  desktop.Hello("tlm2010", "127.0.0.1", listener->Port());
  listener.reset();
  for (int i = 0; i < 2; ++i) EXPECT_ANY_THROW(Arrive()) << "each newcomer tries again";
  EXPECT_EQ(desktop.GetJobCount(), 0U);
  desktop.Disconnect();
  EXPECT_TRUE(Eventually([&] {
    try {
      Arrive();
      return true;
    } catch (int) {
      return false;
    }
  }));
}

struct BoundedCallback : JobTest {
  BoundedCallback() : JobTest(Environment{{"TSQOR_TRACE", "1"}, {"TSQOR_CALLBACK_LIMIT", "1"}}) {}
};

TEST_F(BoundedCallback, IsTriedOnceAndCostsNobodyElseHisConnection) {
  JobClient desktop(Server.Port());
  for (const char* host : {"127.0.0.1", "192.0.2.1"}) {  // one refuses, the other may not answer
    desktop.Hello("tlm2010", host, 1);
    for (int i = 0; i < 2; ++i) EXPECT_LT(TimeOf([&] { JobClient newcomer(Server.Port()); }), std::chrono::seconds(20));
    // After an attempt that took its time there is a rest, in which nobody's is tried.
    const std::string words = "No callback to addr[" + std::string(host) + "] port[1]\n";
    EXPECT_TRUE(Eventually([&] { return JobClient(Server.Port()), Server.HasPrinted(words); })) << words;
  }
  EXPECT_EQ(desktop.GetJobCount(), 0U);
}
}  // namespace
}  // namespace tlm::test
