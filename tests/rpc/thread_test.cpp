// The server loop with a small program of its own, talked to from outside while calls are held up inside it.
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

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

enum Procedure : std::uint32_t { kEcho = 1, kDeleteHeld, kHold };

std::string CallOf(Procedure procedure, const std::string& arguments = "") {
  return test::Call(procedure, arguments, 0x102, kProgram);
}

// What the test and the servers share.
struct Stage {
  ORpcThread Loop;
  std::atomic<int> Made = 0;
  std::atomic<int> Alive = 0;
  std::atomic<int> Abandoned = 0;
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
  bool HasProc(std::int32_t procedure) const override { return procedure >= 1 && procedure <= std::int32_t{kHold}; }
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
      case kDeleteHeld:
        stage_.Loop.DeleteServer(nullptr);
        stage_.Loop.DeleteServer(stage_.Held);
        break;
      default:
        stage_.Holding.set_value();
        stage_.Release.get_future().wait();
    }
    Encode(Encode(Encode(*stream_, replyHeader_), number_), word);
  }

 private:
  void Remember(std::uint32_t word) {
    const std::lock_guard lock(stage_.EchoedLock);
    stage_.Echoed.push_back(word);
  }

  Stage& stage_;
  std::uint32_t number_;
};

struct LoopTest : ::testing::Test {
  Stage TheStage;
  std::uint16_t Port = 0;
  std::thread Runner;

  LoopTest() {
    RegisterServerFactory({kProgram, 1}, [this] { return std::make_shared<StageServer>(TheStage); });
    Port = TheStage.Loop.GetListenerPort(TheStage.Loop.AddListener(0));
    Runner = std::thread([this] { TheStage.Loop.Run(); });
  }
  ~LoopTest() override {
    TheStage.Loop.Stop();
    { const RawConnection wake(Port); }
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

}  // namespace
}  // namespace tlm
