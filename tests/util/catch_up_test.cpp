// What comes first and what later between a loop and those who wait until it has served them.
#include "util/catch_up.h"

#include "support/eventually.h"

namespace tlm::test {
namespace {
using namespace std::chrono_literals;

TEST(CatchUp, WaitsForALookThatBeganLater) {
  CatchUp served;
  EXPECT_TRUE(served.Await(kPatience)) << "no loop";
  std::atomic<int> woken = 0;
  served.Open([&] { ++woken; });
  EXPECT_FALSE(served.Request());
  EXPECT_FALSE(served.Await(1ms)) << "the loop does not answer";
  EXPECT_EQ(woken, 1);
  const std::optional<std::uint64_t> earlier = served.Request();
  ASSERT_TRUE(earlier);

  std::atomic<bool> caughtUp = false;
  std::jthread worker([&] { caughtUp = served.Await(kPatience); });
  ASSERT_TRUE(Eventually([&] { return woken == 2; }));
  served.Answer(*earlier);
  EXPECT_TRUE(served.Request()) << "that look began before the question";
  EXPECT_FALSE(caughtUp);
  served.Answer(*served.Request());
  EXPECT_TRUE(Eventually([&] { return caughtUp.load(); }));
  EXPECT_FALSE(served.Request());

  std::jthread last([&] { served.Await(kPatience); });
  ASSERT_TRUE(Eventually([&] { return woken == 3; }));
  served.Close();
}
}  // namespace
}  // namespace tlm::test
