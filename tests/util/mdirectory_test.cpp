// Walking, making, emptying and copying directories.
#include "util/mdirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "support/sandbox.h"

namespace tlm {
namespace {

using test::Sandbox;

using ::testing::ElementsAre;
namespace fs = std::filesystem;

struct MDirectoryOnDisk : ::testing::Test {
  Sandbox disk;
};

std::vector<std::string> PathsIn(MDirectory& directory) {
  std::vector<std::string> paths;
  MFile entry;
  while (directory.Next(entry)) paths.push_back(entry.Path());
  return paths;
}

TEST_F(MDirectoryOnDisk, DeliversAllEntriesInByteOrder) {
  for (const std::string name : {"b", "B", "a.x", ".h", "\xC3\xA9"}) disk.Write(name);
  disk.MakeDirectory("a");
  MDirectory directory(disk.Root());
  ASSERT_TRUE(directory.Open());
  EXPECT_EQ(directory.Path(), disk / "");
  EXPECT_THAT(PathsIn(directory), ElementsAre(disk / ".", disk / "..", disk / ".h", disk / "B", disk / "a",
                                              disk / "a.x", disk / "b", disk / "\xC3\xA9"));
  MFile entry("untouched");
  EXPECT_FALSE(directory.Next(entry));
  EXPECT_EQ(entry.Path(), "untouched");
  ASSERT_TRUE(directory.Open());
  EXPECT_EQ(directory.Path(), disk / "");
}

TEST_F(MDirectoryOnDisk, KeepsAWalkToOneObject) {
  MDirectory directory(disk.Root());
  MFile entry;
  EXPECT_FALSE(directory.Next(entry));
  ASSERT_TRUE(directory.Open());
  MDirectory copy(directory);
  EXPECT_EQ(copy.Path(), directory.Path());
  EXPECT_FALSE(copy.Next(entry));
  EXPECT_TRUE(directory.Next(entry));
  directory = copy;
  EXPECT_FALSE(directory.Next(entry));
  for (const std::string& unreadable : {std::string(), std::string(" \t"), disk / "missing", disk.Write("file")}) {
    MDirectory other(unreadable);
    EXPECT_FALSE(other.Open()) << unreadable;
    EXPECT_FALSE(other.Next(entry)) << unreadable;
  }
}

TEST_F(MDirectoryOnDisk, MakesWhatIsMissingAbove) {
  const auto create = [&](const std::string& name) {
    MDirectory directory(disk / name);
    const bool made = directory.Create();
    EXPECT_EQ(directory.Path(), disk / name.substr(0, name.find_last_not_of("/\\") + 1));
    return made;
  };
  EXPECT_TRUE(create("a/b/c"));
  EXPECT_TRUE(fs::is_directory(disk / "a/b/c"));
  EXPECT_TRUE(create("a/b/c/"));
  EXPECT_TRUE(create("back\\"));
  EXPECT_TRUE(fs::is_directory(disk / "back"));
  EXPECT_TRUE(create("p//q//r"));
  EXPECT_TRUE(fs::is_directory(disk / "p/q/r"));
}

TEST_F(MDirectoryOnDisk, EndsWithAnAnswerWhereNothingCanBeMade) {
  disk.Write("file");
  std::string tooDeep = disk / "file";
  for (int i = 0; i < 4000; ++i) tooDeep += "/d";
  for (const std::string& path : {std::string(), std::string("/"), disk / "file/below", disk / "file/far/below",
                                  std::string("/proc/none"), disk / std::string(256, 'n'), tooDeep}) {
    EXPECT_FALSE(MDirectory(path).Create()) << path.substr(0, 300);
  }
}

TEST_F(MDirectoryOnDisk, IsMadeByOneOfManyAndFoundByTheRest) {
  for (int round = 0; round < 50; ++round) {
    const std::string path = disk / ("r" + std::to_string(round)) + "/a/b";
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
      thread = std::thread([&] { EXPECT_TRUE(MDirectory(path).Create()); });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

TEST_F(MDirectoryOnDisk, IsRemovedWithItsFilesButNothingBehindALink) {
  disk.MakeDirectory("other");
  disk.Write("other/kept");
  disk.MakeDirectory("top/sub/deep");
  for (const std::string name : {"top/f", "top/sub/f", "top/sub/deep/f"}) disk.Write(name);
  fs::create_symlink(disk / "other", disk / "top/sub/link");
  fs::create_symlink(disk / "gone", disk / "top/dangling");

  EXPECT_FALSE(MDirectory(disk / "top").RemoveTree(false));
  EXPECT_FALSE(disk.Has("top/f"));
  EXPECT_TRUE(disk.Has("top/sub/f"));
  EXPECT_FALSE(MDirectory(disk / "top").HasNoEntries());
  EXPECT_TRUE(MDirectory(disk / "top").RemoveTree(true));
  EXPECT_FALSE(disk.Has("top"));
  EXPECT_TRUE(disk.Has("other/kept"));
  EXPECT_FALSE(MDirectory(disk / "top").RemoveTree(true));
  EXPECT_TRUE(MDirectory(disk / "top").HasNoEntries());
}

TEST_F(MDirectoryOnDisk, LosesTheFilesWithAPrefix) {
  for (const std::string name : {"pre1", "pre.2", "other"}) disk.Write(name);
  disk.MakeDirectory("pre_dir");
  EXPECT_TRUE(MDirectory(disk.Root()).RemoveMatching("pre"));
  EXPECT_FALSE(MDirectory(disk.Root()).RemoveMatching("pre"));
  MDirectory left(disk.Root());
  ASSERT_TRUE(left.Open());
  EXPECT_THAT(PathsIn(left), ElementsAre(disk / ".", disk / "..", disk / "other", disk / "pre_dir"));
}

TEST_F(MDirectoryOnDisk, CopiesItsTreeAlsoIntoItself) {
  disk.MakeDirectory("top/sub.d");
  disk.Write("top/f.x", "one");
  disk.Write("top/sub.d/g", "two");
  EXPECT_FALSE(MDirectory(disk / "top").CopyTree(disk / "flat/", false));
  EXPECT_EQ(disk.Read("flat/f.x"), "one");
  EXPECT_FALSE(disk.Has("flat/sub"));
  EXPECT_FALSE(MDirectory(disk / "top").CopyTree(disk / "top/copy", true));
  EXPECT_EQ(disk.Read("top/copy/f.x"), "one");
  EXPECT_EQ(disk.Read("top/copy/sub/g"), "two");
  EXPECT_FALSE(disk.Has("top/copy/copy"));
  disk.MakeDirectory("empty");
  EXPECT_TRUE(MDirectory(disk / "empty").CopyTree(disk / "new/place", true));
  EXPECT_TRUE(disk.Has("new/place"));
  EXPECT_FALSE(disk.Has("empty"));
}

}  // namespace
}  // namespace tlm
