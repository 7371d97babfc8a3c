// What is read from the message file that a process leaves.
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>

#include "jm/qorjmmsgstream.h"
#include "platform/host.h"
#include "support/sandbox.h"

namespace tlm {
namespace {

using test::Sandbox;

struct MsgStreamTest : ::testing::Test {
  Sandbox Disk;
  QorJMMsgStream Stream;
};

TEST_F(MsgStreamTest, TheLastPairOfACodeCounts) {
  const struct {
    const char* Text;
    int Code;
    std::optional<int> Expected;
  } cases[] = {
      {"4 1\n4 2\n", 4, 2},
      {"4 1\n7\t-3\r\n\n", 7, -3},
      {"4 1", 4, 1},
      {"4 1\n", 5, std::nullopt},
      {"", 4, std::nullopt},
      {"4 1 x 4 2\n", 4, 1},
      {"4 1\n5 x\n4 2\n", 4, 1},
      {"4 1\n99999999999999999999 2\n4 3\n", 4, 1},
      {"4", 4, 0},
      {"4 1\n", 0, 0},           // the read that fails behind the last line gives zeros
      {"4 1", 0, std::nullopt},  // and there is none without a line end
  };
  for (const auto& [text, code, expected] : cases) {
    Disk.Write("qorjmmsg.7", text);
    int value = 77;
    EXPECT_EQ(Stream.ReadMessage(code, &value, 7, Disk.Root(), true), expected.has_value()) << text << " " << code;
    EXPECT_EQ(value, expected.value_or(77)) << text << " " << code;
    EXPECT_FALSE(Disk.Has("qorjmmsg.7"));
  }
}

TEST_F(MsgStreamTest, AFileOnceReadIsReadAgainUntilItIsRemoved) {
  EXPECT_FALSE(Stream.ReadMessage(4, nullptr, 1, Disk.Root(), true)) << "missing";
  Disk.Write("qorjmmsg.1", "4 1\n");
  Disk.Write("qorjmmsg.2", "5 1\n");
  EXPECT_TRUE(Stream.ReadMessage(4, nullptr, 1, Disk.Root(), false));
  EXPECT_TRUE(Stream.ReadMessage(4, nullptr, 2, Disk.Root(), true));
  EXPECT_FALSE(Disk.Has("qorjmmsg.1"));
  EXPECT_TRUE(Disk.Has("qorjmmsg.2"));
  EXPECT_TRUE(Stream.ReadMessage(5, nullptr, 2, Disk.Root(), true));

  std::filesystem::create_directory(Disk.Path("qorjmmsg.3"));
  EXPECT_FALSE(Stream.ReadMessage(4, nullptr, 3, Disk.Root(), true));
  EXPECT_TRUE(Disk.Has("qorjmmsg.3")) << "an empty directory is no message file";
}

TEST_F(MsgStreamTest, NamesFallBackOnThisProcessAndItsDirectory) {
  EXPECT_EQ(QorJMMsgStream::MessageFileName(0xFFFFFFFF, "/d"), "/d/qorjmmsg.4294967295");
  EXPECT_EQ(QorJMMsgStream::MessageFileName(0, ""),
            std::filesystem::current_path().string() + "/qorjmmsg." + std::to_string(platform::ProcessId()));
}

}  // namespace
}  // namespace tlm
