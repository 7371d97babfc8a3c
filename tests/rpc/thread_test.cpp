// The loop in this process.
#include "rpc/orpcthread.h"
#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {
using namespace std::chrono_literals;

TEST(Loop, HasCaughtUpBetweenTheCallsOfAClientThatPausesOnlyAMoment) {
  CatchUp served;
  ORpcThread thread;
  const std::uint16_t port = thread.GetListenerPort(thread.AddListener(0));
  thread.SetCatchUp(served);
  const std::string call = test::Record(test::Call(0));
  test::RawConnection frequent(port), other(port);
  std::atomic<bool> arm = false;
  thread.SetHeartbeat(60ms, [&] {  // on the loop's thread: a call, and one who asks, come before its next look
    if (!arm.exchange(false)) return;
    other.Send(call);
    EXPECT_TRUE(test::Eventually([&] { return served.Request().has_value(); }));
    served.Answer(0);  // nothing: the lock tells that the one who asks has woken the loop
  });
  std::jthread loop([&] { thread.Run(); });
  std::jthread client([&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::sleep_for(1ms)) {
      frequent.Send(call);
      frequent.ReceiveRecord();
    }
    thread.Stop();
    frequent.Send(call);  // which wakes it
  });
  other.Send(call);
  other.ReceiveRecord();  // the loop runs
  int prompt = 0;
  for (int i = 0; i < 6; ++i) {
    arm = true;
    ASSERT_TRUE(test::Eventually([&] { return !arm; }));
    if (served.Await(40ms)) ++prompt;
    other.ReceiveRecord();
  }
  EXPECT_GE(prompt, 4) << "it goes to sleep until that client calls again";
}
}  // namespace
}  // namespace tlm
