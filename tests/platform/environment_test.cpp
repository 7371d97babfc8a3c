// The process environment as this program sees and changes it.
#include "platform/environment.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <thread>

namespace tlm::platform {
namespace {
const int inherited = ::setenv("TSTEST_EMPTY", "", 1);

TEST(Environment, TellsAnEmptyVariableFromNoneAndKeepsTheOrderInWhichEntriesWereMade) {
  ASSERT_EQ(inherited, 0);
  EXPECT_EQ(GetVariable("TSTEST_EMPTY"), "");
  SetVariable("TSTEST_EMPTY", "");
  EXPECT_EQ(GetVariable("TSTEST_EMPTY"), std::nullopt);
  for (const std::string name : {"TSTEST_A", "TSTEST_B", "TSTEST_C", "TSTEST_=", ""}) SetVariable(name, "1");
  SetVariable("TSTEST_A", "4=5");
  SetVariable("TSTEST_B", "");
  std::vector<std::string> entries = EnvironmentEntries();
  std::erase_if(entries, [](const std::string& entry) { return !entry.starts_with("TSTEST_") && entry[0] != '='; });
  EXPECT_THAT(entries, testing::ElementsAre("TSTEST_A=4=5", "TSTEST_C=1"));
}

TEST(Environment, MayBeReadWhileAnotherThreadChangesIt) {
  std::jthread writer([] {
    for (int i = 0; i < 2000; ++i) SetVariable("TSTEST_T" + std::to_string(i % 50), i % 3 == 0 ? "" : "value");
  });
  for (int i = 0; i < 2000; ++i) EXPECT_NE(GetVariable("TSTEST_T" + std::to_string(i % 50)), "");
}
}  // namespace
}  // namespace tlm::platform
