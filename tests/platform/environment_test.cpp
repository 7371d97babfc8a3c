// The process environment as this program sees and changes it.
#include "platform/environment.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace tlm::platform {
namespace {

using testing::ElementsAre;

const int inherited = ::setenv("INHERITED_EMPTY", "", 1);

// The entries that begin so, in their order.
std::vector<std::string> EntriesOf(const std::string& prefix) {
  std::vector<std::string> found;
  for (const std::string& entry : EnvironmentEntries()) {
    if (entry.starts_with(prefix)) found.push_back(entry);
  }
  return found;
}

TEST(Environment, TellsAnEmptyVariableFromNone) {
  ASSERT_EQ(inherited, 0);
  EXPECT_EQ(GetVariable("INHERITED_EMPTY"), "");
  EXPECT_EQ(GetVariable("TSTEST_NONE"), std::nullopt);
  SetVariable("INHERITED_EMPTY", "");
  EXPECT_EQ(GetVariable("INHERITED_EMPTY"), std::nullopt);
}

TEST(Environment, KeepsTheOrderInWhichEntriesWereMade) {
  SetVariable("TSTEST_ORDER_A", "1");
  SetVariable("TSTEST_ORDER_B", "2");
  SetVariable("TSTEST_ORDER_C", "3");
  SetVariable("TSTEST_ORDER_A", "4=5");
  SetVariable("TSTEST_ORDER_B", "");
  SetVariable("TSTEST_=", "x");
  SetVariable("", "x");
  EXPECT_THAT(EntriesOf("TSTEST_ORDER_"), ElementsAre("TSTEST_ORDER_A=4=5", "TSTEST_ORDER_C=3"));
  EXPECT_THAT(EntriesOf("="), ElementsAre());
  EXPECT_EQ(::getenv("TSTEST_ORDER_A"), nullptr) << "the C library's copy stays as it was";
}

TEST(Environment, MayBeReadWhileAnotherThreadChangesIt) {
  std::thread writer([] {
    for (int i = 0; i < 2000; ++i) SetVariable("TSTEST_T" + std::to_string(i % 50), i % 3 == 0 ? "" : "value");
  });
  for (int i = 0; i < 2000; ++i) {
    const auto value = GetVariable("TSTEST_T" + std::to_string(i % 50));
    ASSERT_TRUE(!value || *value == "value");
  }
  writer.join();
}

}  // namespace
}  // namespace tlm::platform
