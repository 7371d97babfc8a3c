// An object of the server side that is given up while a call of it waits further down the stack.
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "rpc/orpcthread.h"
#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {

using test::RawConnection;
using test::Record;
using test::Reply;
using test::U32;

constexpr std::uint32_t kProgram = 0x7E57;

enum Procedure : std::uint32_t { kNull, kEcho, kDeleteHeld };

std::string CallOf(Procedure procedure, const std::string& arguments = "") {
  return test::Call(procedure, arguments, 0x102, kProgram);
}

// What the test and the servers share.
struct Stage {
  ORpcThread Loop;
  std::atomic<int> Made = 0, Alive = 0, Abandoned = 0;
  const ORpcServer* Held = nullptr;  // waits for its argument
};

class StageServer : public ORpcServer {
 public:
  explicit StageServer(Stage& stage) : stage_(stage), number_(static_cast<std::uint32_t>(++stage.Made)) {
    ++stage_.Alive;
  }
  ~StageServer() override { --stage_.Alive; }
  bool HasProc(std::int32_t procedure) const override { return procedure <= std::int32_t{kDeleteHeld}; }
  void Abandon() override { ++stage_.Abandoned; }

  // Replies with the object's number and the argument, if the procedure has one.
  void Dispatch(std::int32_t procedure) override {
    std::uint32_t word = 0;
    if (procedure == kEcho) {
      stage_.Held = this;
      Decode(*stream_, word);
    } else {
      stage_.Loop.DeleteServer(nullptr);
      stage_.Loop.DeleteServer(stage_.Held);
    }
    Encode(Encode(Encode(*stream_, replyHeader_), number_), word);
  }

 private:
  Stage& stage_;
  const std::uint32_t number_;
};

TEST(ServerObject, OutlivesTheCallDuringWhichItIsDeleted) {
  Stage stage;
  RegisterServerFactory({kProgram, 1}, [&stage] { return std::make_shared<StageServer>(stage); });
  const std::uint16_t port = stage.Loop.GetListenerPort(stage.Loop.AddListener(0));
  std::thread runner([&stage] { stage.Loop.Run(); });
  RawConnection held(port);
  RawConnection other(port);
  for (RawConnection* one : {&held, &other}) EXPECT_EQ(one->Ask(CallOf(kNull)), Reply());

  held.Send(Record(CallOf(kEcho)));
  EXPECT_TRUE(test::Eventually(
      [&] { return other.Ask(CallOf(kDeleteHeld)) == Reply(U32(2) + U32(0)) && stage.Abandoned == 1; }));
  EXPECT_EQ(stage.Alive, 2);
  held.Send(Record(U32(9)));
  EXPECT_EQ(held.ReceiveRecord(), Reply(U32(1) + U32(9)));
  EXPECT_EQ(held.Ask(CallOf(kEcho, U32(4))), Reply(U32(3) + U32(4))) << "the connection gets a new object";
  EXPECT_EQ(stage.Alive, 2);

  stage.Loop.Stop();
  { const RawConnection wake(port); }
  runner.join();
  EXPECT_EQ(stage.Alive, 0) << "every object goes with its connection";
  EXPECT_EQ(stage.Abandoned, stage.Made);
}

}  // namespace
}  // namespace tlm
