// What a file object finds on disk, and leaves there.
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "platform/file_system.h"
#include "support/sandbox.h"
#include "util/mfile.h"

namespace tlm {
namespace {

using test::Sandbox;

struct MFileOnDisk : ::testing::Test {
  Sandbox disk;
};

TEST_F(MFileOnDisk, TellsWhatIsThere) {
  const MFile file(disk.Write("file", "12345"));
  const MFile directory(disk.MakeDirectory("dir"));
  EXPECT_TRUE(file.Exists());
  EXPECT_TRUE(directory.Exists());
  EXPECT_FALSE(MFile(disk / "dir/").Exists());
  EXPECT_FALSE(MFile(disk / "dir\\").Exists());
  EXPECT_FALSE(MFile(disk / "FILE").Exists());
  EXPECT_FALSE(MFile(disk / "fil?").Exists());
  EXPECT_FALSE(MFile().Exists());
  EXPECT_TRUE(directory.IsDirectory());
  EXPECT_FALSE(file.IsDirectory());
  EXPECT_LE(std::abs(file.ModTime() - std::time(nullptr)), 60);
}

TEST_F(MFileOnDisk, TellsSizesWithoutWrapping) {
  const MFile file(disk.Write("file", "12345"));
  EXPECT_EQ(file.Size(), 5U);
  for (const std::uintmax_t large : {0xFFFFFFFFULL, 0x100000000ULL, 0x100000005ULL}) {
    std::filesystem::resize_file(file.Path(), large);
    EXPECT_EQ(file.Size(), 0xFFFFFFFFU) << large;
  }
  std::uint32_t size = 7;
  EXPECT_EQ(MFile(disk / "missing").GetSize(size), ENOENT);
  EXPECT_EQ(size, 0U);
}

TEST_F(MFileOnDisk, SwitchesTheOwnersWritePermission) {
  MFile file(disk.Write("file"));
  const auto ownerMayWrite = [&] {
    return (std::filesystem::status(file.Path()).permissions() & std::filesystem::perms::owner_write) !=
           std::filesystem::perms::none;
  };
  EXPECT_TRUE(file.SetReadOnly(true));
  EXPECT_FALSE(ownerMayWrite());
  EXPECT_EQ(file.IsReadOnly(), !platform::IsWritable(file.Path()));  // root may write all the same
  EXPECT_TRUE(file.SetReadOnly(false));
  EXPECT_TRUE(ownerMayWrite());
  EXPECT_FALSE(file.IsReadOnly());
  EXPECT_FALSE(MFile(disk / "missing").IsReadOnly());
  EXPECT_FALSE(MFile(disk / "missing").SetReadOnly(true));
}

TEST_F(MFileOnDisk, RemovesAndRenamesFilesOnly) {
  MFile file(disk.Write("file", "new"));
  disk.Write("other", "old");
  EXPECT_TRUE(file.Rename(disk / "other"));
  EXPECT_EQ(file.Path(), disk / "other");
  EXPECT_EQ(disk.Read("other"), "new");
  EXPECT_FALSE(file.Rename(disk / "missing/name"));
  EXPECT_EQ(file.Path(), disk / "other");
  EXPECT_TRUE(file.Remove());
  EXPECT_TRUE(file.IsEmpty());
  EXPECT_FALSE(disk.Has("other"));

  MFile directory(disk.MakeDirectory("empty"));
  EXPECT_FALSE(directory.Remove());
  EXPECT_EQ(directory.Path(), disk / "empty");
  EXPECT_TRUE(disk.Has("empty"));
}

TEST_F(MFileOnDisk, CopiesWholeFilesAndLeavesTheDestinationAloneWithoutASource) {
  std::string content(3 * 0x100000 + 17, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 251);
  const MFile file(disk.Write("file", content));
  disk.Write("copy", "former and longer");
  EXPECT_TRUE(file.CopyTo(disk / "copy"));
  EXPECT_EQ(disk.Read("copy"), content);
  EXPECT_TRUE(MFile(disk / "second").CopyFrom(disk / "copy"));
  EXPECT_EQ(disk.Read("second"), content);
  EXPECT_TRUE(file.CopyToAtOnce(disk / "third"));
  EXPECT_EQ(disk.Read("third"), content);

  EXPECT_TRUE(file.CopyTo(file.Path()));
  EXPECT_EQ(disk.Read("file"), content);
  EXPECT_FALSE(MFile(disk / "missing").CopyTo(disk / "copy"));
  EXPECT_FALSE(MFile(disk / "missing").CopyToAtOnce(disk / "copy"));
  EXPECT_FALSE(MFile(disk.Root()).CopyTo(disk / "copy"));
  EXPECT_EQ(disk.Read("copy"), content);
  EXPECT_FALSE(file.CopyTo(disk / "missing/copy"));
}

TEST_F(MFileOnDisk, TellsOnStandardOutputWhatACopyLost) {
  const auto printed = [](const auto& copy) {
    testing::internal::CaptureStdout();
    const bool answer = copy();
    return std::make_pair(answer, testing::internal::GetCapturedStdout());
  };
  // The first can be opened but not read, the second takes nothing.
  EXPECT_EQ(printed([&] { return MFile("/proc/self/mem").CopyTo(disk / "copy"); }),
            std::make_pair(false, std::string("ERROR:In libfileutils::CopyTo\n")));
  const MFile file(disk.Write("file", "12345"));
  EXPECT_EQ(
      printed([&] { return file.CopyToAtOnce("/dev/full"); }),
      std::make_pair(true, std::string("ERROR:In libfileutils::CopyTo. Tried to write 5 bytes, wrote 0 bytes\n")));
  EXPECT_EQ(printed([&] { return file.CopyTo("/dev/full"); }), std::make_pair(false, std::string()));
}

TEST_F(MFileOnDisk, DoesNotWaitForTheOtherEndOfAPipe) {
  const MFile pipe(disk / "pipe");
  ASSERT_EQ(mkfifo(pipe.Path().c_str(), 0600), 0);
  EXPECT_TRUE(pipe.CopyTo(disk / "copy"));
  EXPECT_EQ(disk.Read("copy"), "");
  EXPECT_FALSE(MFile(disk / "copy").CopyTo(pipe.Path()));
}

TEST_F(MFileOnDisk, GuessesBinaryFilesByTheirStart) {
  const auto looksBinary = [&](const std::string& content, bool strict) {
    return MFile(disk.Write("file", content)).LooksBinary(strict);
  };
  EXPECT_FALSE(looksBinary("text \t\v\f\r\n", false));
  EXPECT_TRUE(looksBinary("no line end", false));
  EXPECT_TRUE(looksBinary("", true));
  EXPECT_TRUE(looksBinary("\x01\n", false));
  EXPECT_FALSE(looksBinary("\x01\n", true));
  EXPECT_TRUE(looksBinary("\xE4\n", true));
  EXPECT_FALSE(looksBinary("\xE4\n", false));
  EXPECT_FALSE(looksBinary("\n" + std::string(1023, 'x') + "\x01", false)) << "too far behind";
  EXPECT_TRUE(looksBinary(std::string(1024, 'x') + "\n", false)) << "too far behind";
  EXPECT_FALSE(MFile(disk / "missing").LooksBinary(false));
}

TEST_F(MFileOnDisk, MakesTemporaryFiles) {
  MFile first, second;
  ASSERT_TRUE(first.MakeTempName());
  ASSERT_TRUE(second.MakeTempName());
  EXPECT_NE(first.Path(), second.Path());
  EXPECT_TRUE(first.Name().starts_with("tq"));
  EXPECT_TRUE(first.Exists());
  EXPECT_TRUE(first.Remove());
  EXPECT_TRUE(second.Remove());
}

struct MFileUniqueName : MFileOnDisk {
  std::string Unique(const std::string& base, const std::string& suffix) {
    MFile file(disk / "own.txt");
    file.MakeUniqueName(base.empty() ? "" : disk / base, suffix);
    return file.Path().substr(disk.Root().size() + 1);
  }
};

TEST_F(MFileUniqueName, CountsUpUntilANameWithTheSuffixIsFree) {
  EXPECT_EQ(Unique("a.dat", ".txt"), "a.txt");
  EXPECT_EQ(Unique("", "txt"), "own.txt");
  disk.Write("a.txt");
  EXPECT_EQ(Unique("a.dat", "txt"), "a~1.txt");
  disk.Write("a~1.txt");
  disk.Write("a~3.txt");
  EXPECT_EQ(Unique("a", ".txt"), "a~2.txt");
  EXPECT_EQ(Unique("a~3.x", ".txt"), "a~4.txt");
  EXPECT_EQ(Unique("b~3.x", ".txt"), "b.txt");
  disk.Write("b.txt");
  EXPECT_EQ(Unique("b~3", ".txt"), "b~3.txt");
  for (const std::string noNumber : {"n~0", "n~", "n~4x", "n~99999999999"})
    EXPECT_EQ(Unique(noNumber, ".t"), noNumber + ".t");
}

TEST_F(MFileUniqueName, GoesAboveTheHighestNumberWithoutASuffix) {
  EXPECT_EQ(Unique("a.dat", ""), "a~1");
  for (const std::string name : {"a~7.dat", "a~9..x", "ab~30", "a~x"}) disk.Write(name);
  EXPECT_EQ(Unique("a.dat", ""), "a~8");
  EXPECT_EQ(Unique("a~21", ""), "a~21");
  disk.Write("A~80");
  EXPECT_EQ(Unique("a", ""), "a~10") << "in A~80 stands A~8, and a~9 in a~9..x";
  disk.Write("a~4294967295");
  disk.Write("a~4294967296");
  EXPECT_EQ(Unique("a", ""), "a~4294967297");
}

}  // namespace
}  // namespace tlm
