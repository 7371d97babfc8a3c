// Asking a process to end through its named event.
#include "platform/stop_event.h"

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace tlm::platform {
namespace {

using namespace std::chrono_literals;

TEST(StopEvent, AnEventIsSetByItsNameAndStaysSet) {
  const std::string name = "stop_event_test_" + std::to_string(getpid());
  EXPECT_FALSE(SetStopEvent(name)) << "nobody has made it";
  {
    std::optional<StopEvent> event = StopEvent::Create(name);
    ASSERT_TRUE(event);
    EXPECT_FALSE(event->WaitFor(1ms));
    std::jthread setter([&] { EXPECT_TRUE(SetStopEvent(name)); });
    EXPECT_TRUE(event->WaitFor(60s));
    const StopEvent moved = std::move(*event);
    EXPECT_TRUE(SetStopEvent(name)) << "a moved event keeps its name";
    std::optional<StopEvent> successor = StopEvent::Create(name);
    EXPECT_FALSE(successor->IsSet()) << "an event that was left behind is replaced";
    RemoveStopEvent(name);
    EXPECT_FALSE(SetStopEvent(name)) << "removed";
  }
  EXPECT_FALSE(SetStopEvent(name)) << "the name goes with the event";
}

}  // namespace
}  // namespace tlm::platform
