// The server loop with a small program of its own, talked to from outside while calls are held up inside it.
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

#include "rpc/orpcclient.h"
#include "rpc/orpcerror.h"
#include "rpc/orpcthread.h"
#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {

using test::Eventually;
using test::RawConnection;
using test::Record;
using test::Reply;
using test::U32;

constexpr std::uint32_t kProgram = 0x7E57;

enum Procedure : std::uint32_t { kEcho = 1, kAskOther, kDeleteHeld, kHold, kFail, kBreak, kStop, kEndless, kLast };

std::string CallOf(Procedure procedure, const std::string& arguments = "", std::uint32_t version = 1) {
  return test::Call(procedure, arguments, 0x102, kProgram, version);
}

// What the test and the servers share.
struct Stage {
  ORpcThread Loop;
  std::atomic<int> Made = 0;
  std::atomic<int> Alive = 0;
  std::atomic<int> Abandoned = 0;
  std::atomic<int> InEndless = 0;
  const ORpcServer* Held = nullptr;  // waits for its argument
  std::mutex EchoedLock;
  std::vector<std::uint32_t> Echoed;
  std::promise<void> Holding;
  std::promise<void> Release;
};

class StageServer : public ORpcServer {
 public:
  explicit StageServer(Stage& stage) : stage_(stage), number_(static_cast<std::uint32_t>(++stage.Made)) {
    ++stage_.Alive;
  }
  ~StageServer() override { --stage_.Alive; }
  bool HasProc(std::int32_t procedure) const override { return procedure >= 1 && procedure < std::int32_t{kLast}; }
  void Abandon() override { ++stage_.Abandoned; }

  // Replies with the object's number and the argument, if the procedure has one.
  void Dispatch(std::int32_t procedure) override {
    std::uint32_t word = 0;
    switch (procedure) {
      case kEcho:
        stage_.Held = this;
        Decode(*stream_, word);
        Remember(word);
        break;
      case kAskOther:
        word = AskOther(Decoded<std::uint32_t>(*stream_));
        break;
      case kDeleteHeld:
        stage_.Loop.DeleteServer(nullptr);
        stage_.Loop.DeleteServer(stage_.Held);
        break;
      case kHold:
        stage_.Holding.set_value();
        stage_.Release.get_future().wait();
        break;
      case kFail:
        throw std::bad_alloc();
      case kBreak:
        throw OrpcSocketError(1);
      case kStop:
        stage_.Loop.Stop();
        break;
      default:
        for (++stage_.InEndless;;) Encode(*stream_, std::uint64_t{0});
    }
    Encode(Encode(Encode(*stream_, replyHeader_), number_), word);
  }

 private:
  void Remember(std::uint32_t word) {
    const std::lock_guard lock(stage_.EchoedLock);
    stage_.Echoed.push_back(word);
  }
  static std::uint32_t AskOther(std::uint32_t port) {
    ORpcClient client(kProgram, 1, static_cast<std::uint16_t>(port));
    client.Connect("127.0.0.1", 0);
    Encode(client.BeginCall(kEcho), std::uint32_t{77}).Flush();
    ORpcIO& reply = client.EndCall();
    Decoded<std::uint32_t>(reply);
    return Decoded<std::uint32_t>(reply);
  }

  Stage& stage_;
  std::uint32_t number_;
};

struct LoopTest : ::testing::Test {
  Stage TheStage;
  std::uint16_t Port = 0;
  std::thread Runner;

  LoopTest() {
    for (std::uint32_t version : {1U, 2U}) {
      RegisterServerFactory({kProgram, version}, [this] { return std::make_shared<StageServer>(TheStage); });
    }
    Port = TheStage.Loop.GetListenerPort(TheStage.Loop.AddListener(0));
    Runner = std::thread([this] { TheStage.Loop.Run(); });
  }
  ~LoopTest() override {
    TheStage.Loop.Stop();
    try {
      RawConnection wake(Port);
    } catch (const std::runtime_error&) {  // It has ended already.
    }
    Runner.join();
    EXPECT_EQ(TheStage.Alive, 0) << "every object goes with its connection";
    EXPECT_EQ(TheStage.Abandoned, TheStage.Made);
  }

  // A connection that has been accepted and has its object.
  RawConnection Greeted() {
    RawConnection connection(Port);
    EXPECT_EQ(connection.Ask(CallOf(Procedure{0})), Reply());
    return connection;
  }
};

// -- objects
TEST_F(LoopTest, AnObjectIsMadeAtTheFirstCallOfAProgramAndGoesWithItsConnection) {
  RawConnection silent(Port);
  {
    RawConnection caller = Greeted();
    EXPECT_EQ(TheStage.Made, 1);
    EXPECT_EQ(caller.Ask(CallOf(kEcho, U32(5))), Reply(U32(1) + U32(5)));
    EXPECT_EQ(caller.Ask(CallOf(kEcho, U32(5), 2)), Reply(U32(2) + U32(5))) << "another version, another object";
    EXPECT_EQ(caller.Ask(CallOf(kEcho, U32(5), 3)), Reply("", 1));
    EXPECT_EQ(caller.Ask(CallOf(kLast)), Reply("", 3));
    EXPECT_EQ(caller.Ask(CallOf(kFail)), Reply("", 5));
    EXPECT_EQ(caller.Ask(CallOf(kEcho, U32(6))), Reply(U32(1) + U32(6))) << "all of that leaves the session";
  }
  EXPECT_TRUE(Eventually([&] { return TheStage.Alive == 0; }));

  RawConnection broken = Greeted();
  broken.Send(Record(CallOf(kBreak)));
  EXPECT_TRUE(broken.IsClosedByPeer());
  EXPECT_TRUE(Eventually([&] { return TheStage.Alive == 0; }));
}

TEST_F(LoopTest, AnObjectThatIsDeletedDuringItsCallOutlivesTheCall) {
  RawConnection held = Greeted();
  RawConnection other = Greeted();
  held.Send(Record(CallOf(kEcho)));
  EXPECT_TRUE(
      Eventually([&] { return other.Ask(CallOf(kDeleteHeld)) == Reply(U32(2) + U32(0)) && TheStage.Abandoned == 1; }));
  EXPECT_EQ(TheStage.Alive, 2);
  held.Send(Record(U32(9)));
  EXPECT_EQ(held.ReceiveRecord(), Reply(U32(1) + U32(9)));
  EXPECT_EQ(held.Ask(CallOf(kEcho, U32(4))), Reply(U32(3) + U32(4))) << "the connection gets a new object";
  EXPECT_EQ(TheStage.Alive, 2);
}

// -- passes
TEST_F(LoopTest, EachPassServesOneCallOfTheEarliestConnectionThatIsReady) {
  RawConnection early = Greeted();
  RawConnection late = Greeted();
  RawConnection holder = Greeted();
  holder.Send(Record(CallOf(kHold)));
  TheStage.Holding.get_future().wait();
  late.Send(Record(CallOf(kEcho, U32(3))));
  early.Send(Record(CallOf(kEcho, U32(1))) + Record(CallOf(kEcho, U32(2))));
  TheStage.Release.set_value();
  EXPECT_EQ(late.ReceiveRecord(), Reply(U32(2) + U32(3)));
  const std::lock_guard lock(TheStage.EchoedLock);
  EXPECT_EQ(TheStage.Echoed, (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST_F(LoopTest, AServerThatCallsItselfIsServedInsideItsWait) {
  RawConnection half(Port);
  half.Send(Record(CallOf(kEcho, U32(1))).substr(0, 30));
  RawConnection caller = Greeted();  // later, so that the half call waits beneath it
  EXPECT_EQ(caller.Ask(CallOf(kAskOther, U32(Port))), Reply(U32(1) + U32(77)));
}

TEST_F(LoopTest, ACallThatComesByteByByteHoldsNobodyUp) {
  RawConnection slow(Port);
  RawConnection quick(Port);
  for (char byte : Record(CallOf(kEcho)) + Record(U32(8))) {
    slow.Send(std::string(1, byte));
    EXPECT_EQ(quick.Ask(CallOf(Procedure{0})), Reply());
  }
  EXPECT_EQ(slow.ReceiveRecord().substr(28), U32(8));
}

// -- the end
TEST_F(LoopTest, AStopEndsTheCallsThatWaitForTheirClients) {
  RawConnection reader = Greeted();
  reader.Send(Record(CallOf(kEndless)));  // it does not read, so that the loop waits in a Send
  ASSERT_TRUE(Eventually([&] { return TheStage.InEndless == 1; }));
  RawConnection half(Port);
  half.Send(Record(CallOf(kEcho)));
  RawConnection stopper(Port);
  stopper.Send(Record(CallOf(kStop)));
  EXPECT_TRUE(stopper.IsClosedByPeer()) << "and gets no reply";
  EXPECT_TRUE(half.IsClosedByPeer());
  EXPECT_TRUE(Eventually([&] { return TheStage.Alive == 0; }));
}

TEST(Listener, APortThatIsTakenRaisesTheSystemsNumber) {
  ORpcThread loop;
  const std::uint16_t port = loop.GetListenerPort(loop.AddListener(0));
  ORpcThread other;
  try {
    other.AddListener(port);
    FAIL() << "two listeners on one port";
  } catch (const OrpcSocketError& error) {
    EXPECT_EQ(error.Number(), EADDRINUSE);
  }
  EXPECT_THROW(loop.GetRemotePort(-1), OrpcSocketError);
}

}  // namespace
}  // namespace tlm
