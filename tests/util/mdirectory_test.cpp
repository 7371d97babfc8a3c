// Walking, making, emptying and copying directories.
#include "util/mdirectory.h"

#include <gmock/gmock.h>
#include <thread>
#include <vector>

#include "support/sandbox.h"

namespace tlm {
namespace {
namespace fs = std::filesystem;

struct MDirectoryOnDisk : ::testing::Test {
  test::Sandbox disk;
};

TEST_F(MDirectoryOnDisk, DeliversAllEntriesInByteOrder) {
  for (const std::string name : {"b", "B", "a.x", ".h", "\xC3\xA9", "a/b"}) disk.Write(name);
  MDirectory directory(disk.Root());
  ASSERT_TRUE(directory.Open());
  std::vector<std::string> paths;
  MFile entry;
  while (directory.Next(entry)) paths.push_back(entry.Path());
  EXPECT_THAT(paths, testing::ElementsAre(disk / ".", disk / "..", disk / ".h", disk / "B", disk / "a", disk / "a.x",
                                          disk / "b", disk / "\xC3\xA9"));
  EXPECT_TRUE(directory.Open()) << "again, now with a separator at its end";
  for (const std::string& unreadable : {std::string(), std::string(" \t"), disk / "missing", disk / "b"}) {
    EXPECT_FALSE(MDirectory(unreadable).Open()) << unreadable;
  }
}

TEST_F(MDirectoryOnDisk, MakesWhatIsMissingAboveOrEndsWithAnAnswer) {
  const std::string longName(255, 'n');
  for (const std::string& name : {std::string("a/b/c/"), std::string("back\\"), std::string("p//q//r"), longName}) {
    EXPECT_TRUE(MDirectory(disk / name).Create()) << name;
    EXPECT_TRUE(fs::is_directory(disk / name.substr(0, name.find_last_not_of("/\\") + 1))) << name;
  }
  disk.Write("file");
  std::string tooDeep = disk / "file";
  for (int i = 0; i < 4000; ++i) tooDeep += "/d";
  for (const std::string& path : {std::string(), std::string("/"), disk / "file/far/below", std::string("/proc/none"),
                                  disk / std::string(256, 'n'), tooDeep}) {
    EXPECT_FALSE(MDirectory(path).Create()) << path.substr(0, 300);
  }
}

TEST_F(MDirectoryOnDisk, IsMadeByOneOfManyAndFoundByTheRest) {
  for (int round = 0; round < 50; ++round) {
    const std::string path = disk / ("r" + std::to_string(round)) + "/a/b";
    const auto make = [&path] { EXPECT_TRUE(MDirectory(path).Create()); };
    const std::jthread a(make), b(make), c(make), d(make);
  }
}

TEST_F(MDirectoryOnDisk, IsCopiedAlsoIntoItselfAndRemovedButNothingBehindALink) {
  for (const std::string name : {"other/kept", "top/sub/g"}) disk.Write(name, "text");
  EXPECT_FALSE(MDirectory(disk / "top").CopyTree(disk / "top/copy", true));
  EXPECT_EQ(disk.Read("top/copy/sub/g"), "text");
  fs::create_symlink(disk / "other", disk / "top/sub/link");
  EXPECT_TRUE(MDirectory(disk / "top").RemoveTree(true));
  EXPECT_TRUE(disk.Has("other/kept"));
}
}  // namespace
}  // namespace tlm
