// What a file object finds on disk, and leaves there.
#include <cerrno>
#include <gtest/gtest.h>

#include "support/sandbox.h"
#include "util/mfile.h"

namespace tlm {
namespace {
struct MFileOnDisk : ::testing::Test {
  test::Sandbox disk;
};

TEST_F(MFileOnDisk, TellsWhatIsThere) {
  const MFile file(disk.Write("file", "12345"));
  const MFile directory(disk.MakeDirectory("dir"));
  EXPECT_TRUE(file.Exists() && !file.IsDirectory());
  EXPECT_TRUE(directory.Exists() && directory.IsDirectory());
  for (const char* other : {"dir/", "dir\\", "FILE", "fil?"}) EXPECT_FALSE(MFile(disk / other).Exists()) << other;
  EXPECT_EQ(file.Size(), 5U);
  std::filesystem::resize_file(file.Path(), 0x100000005);
  EXPECT_EQ(file.Size(), 0xFFFFFFFFU) << "does not wrap";
  std::uint32_t size = 7;
  EXPECT_TRUE(MFile(disk / "missing").GetSize(size) == ENOENT && size == 0);
}

TEST_F(MFileOnDisk, RemovesAndRenamesFilesOnly) {
  MFile file(disk.Write("file", "new"));
  disk.Write("other", "old");
  EXPECT_TRUE(file.CopyTo(disk / "other") && file.Rename(disk / "other"));
  EXPECT_EQ(disk.Read("other"), "new");
  EXPECT_FALSE(file.Rename(disk / "missing/name"));
  EXPECT_EQ(file.Path(), disk / "other");
  EXPECT_TRUE(file.Remove() && file.IsEmpty());
  EXPECT_FALSE(disk.Has("other"));
  EXPECT_FALSE(MFile(disk.MakeDirectory("empty")).Remove());
  EXPECT_TRUE(disk.Has("empty"));
}

TEST_F(MFileOnDisk, MakesANameThatIsNotTaken) {
  const std::tuple<std::string, std::string, std::string, std::vector<std::string>> cases[] = {
      {"a.dat", ".txt", "a.txt", {}},
      {"", "txt", "own.txt", {}},
      {"a.dat", "txt", "a~1.txt", {"a.txt"}},
      {"a", ".txt", "a~2.txt", {"a.txt", "a~1.txt", "a~3.txt"}},
      {"a~3.x", ".txt", "a~4.txt", {"a.txt", "a~3.txt"}},
      {"b~3.x", ".txt", "b.txt", {}},
      {"b~3", ".txt", "b~3.txt", {"b.txt"}},
      {"n~99999999999", ".t", "n~99999999999.t", {}},
      // Without a suffix, above the highest number.
      {"a.dat", "", "a~8", {"a~7.dat", "a~9..x", "ab~30", "a~x"}},
      {"a", "", "a~10", {"a~7", "a~9..x", "A~80"}},  // a~8 is part of A~80
      {"a", "", "a~4294967297", {"a~4294967295", "a~4294967296"}},
  };
  for (const auto& [base, suffix, unique, taken] : cases) {
    const test::Sandbox fresh;
    for (const std::string& name : taken) fresh.Write(name);
    MFile file(fresh / "own.txt");
    file.MakeUniqueName(base.empty() ? "" : fresh / base, suffix);
    EXPECT_EQ(file.Path(), fresh / unique) << base << ' ' << suffix;
  }
}
}  // namespace
}  // namespace tlm
