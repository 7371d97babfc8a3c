// What is read from the message file that a process leaves.
#include <gtest/gtest.h>
#include <optional>

#include "jm/qorjmmsgstream.h"
#include "support/sandbox.h"

namespace tlm {
namespace {
TEST(MsgStream, TheLastPairOfACodeCounts) {
  const std::tuple<const char*, int, std::optional<int>> cases[] = {
      {"4 1\n4 2\n", 4, 2},
      {"4 1\n7\t-3\r\n\n", 7, -3},
      {"4 1", 4, 1},
      {"4 1\n", 5, std::nullopt},
      {"4 1 x 4 2\n", 4, 1},
      {"4 1\n99999999999999999999 2\n4 3\n", 4, 1},
      {"4", 4, 0},
      {"4 1\n", 0, 0},           // the read that fails behind the last line gives zeros
      {"4 1", 0, std::nullopt},  // and there is none without a line end
  };
  const test::Sandbox disk;
  QorJMMsgStream stream;
  for (const auto& [text, code, expected] : cases) {
    disk.Write("qorjmmsg.7", text);
    int value = 77;
    EXPECT_EQ(stream.ReadMessage(code, &value, 7, disk.Root(), true), expected.has_value()) << text << " " << code;
    EXPECT_EQ(value, expected.value_or(77)) << text << " " << code;
    EXPECT_FALSE(disk.Has("qorjmmsg.7"));
  }
}
}  // namespace
}  // namespace tlm
