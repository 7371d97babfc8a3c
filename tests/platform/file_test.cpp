// Open files, their locks, and the names that lead to them.
#include "platform/file.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_lock.h"
#include "platform/file_system.h"
#include "support/sandbox.h"

namespace tlm::platform {
namespace {

using tlm::test::Sandbox;

namespace fs = std::filesystem;

struct FilesOnDisk : ::testing::Test {
  Sandbox disk;
};

TEST_F(FilesOnDisk, AreWrittenAsTheModeSays) {
  const auto after = [&](const std::string& name, File::Mode mode) {
    std::optional<File> file = File::Open(disk / name, mode);
    EXPECT_TRUE(file && file->Write("new") && file->Close());
    return disk.Read(name);
  };
  for (const File::Mode mode : {File::Mode::Truncate, File::Mode::Append, File::Mode::Update}) {
    disk.Write("file", "former");
    const std::string expected[] = {"", "new", "formernew", "newmer"};
    EXPECT_EQ(after("file", mode), expected[static_cast<int>(mode)]);
    fs::remove(disk / "file");
    EXPECT_EQ(after("file", mode), "new");
    EXPECT_FALSE(File::Open(disk.Root(), mode));
    EXPECT_FALSE(File::Open(disk / "missing/file", mode));
  }
  EXPECT_FALSE(File::Open(disk / "missing", File::Mode::Read));
  EXPECT_FALSE(File::Open(disk.Root(), File::Mode::Read));
}

TEST_F(FilesOnDisk, AreReadFromAnyPosition) {
  disk.Write("file", "0123456789");
  std::optional<File> file = File::Open(disk / "file", File::Mode::Read);
  ASSERT_TRUE(file);
  char buffer[8] = {};
  EXPECT_TRUE(file->Seek(7));
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 3U);
  EXPECT_EQ(std::string(buffer), "789");
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 0U);
  EXPECT_FALSE(file->Seek(~std::uint64_t{0}));
  EXPECT_FALSE(File::Open("/proc/self/mem", File::Mode::Read)->Read(buffer, sizeof buffer));
  EXPECT_FALSE(File::Open("/dev/full", File::Mode::Append)->Write("lost"));

  const std::string large(200'000, 'x');
  disk.Write("large", large);
  EXPECT_EQ(ReadWholeFile(disk / "large"), large);
  EXPECT_EQ(ReadWholeFile(disk.Write("empty")), "");
  EXPECT_EQ(ReadWholeFile(disk / "missing"), std::nullopt);
}

TEST_F(FilesOnDisk, AreNotInheritedAndCloseByScope) {
  const auto descriptorsHere = [&](bool inheritedOnly) {
    int count = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
      std::error_code error;
      const fs::path target = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
      if (error || !target.string().starts_with(disk.Root())) continue;
      if (!inheritedOnly || (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) ++count;
    }
    return count;
  };
  {
    std::optional<File> file = File::Open(disk / "file", File::Mode::Truncate);
    const std::optional<File> other = File::Open(disk / "file", File::Mode::Read);
    const std::optional<FileLock> lock = FileLock::Open(disk / "lock");
    ASSERT_TRUE(file && other && lock);
    EXPECT_EQ(descriptorsHere(false), 3);
    EXPECT_EQ(descriptorsHere(true), 0);
    *file = *File::Open(disk / "file", File::Mode::Append);
    EXPECT_EQ(descriptorsHere(false), 3);
    const File moved = std::move(*file);
    EXPECT_EQ(descriptorsHere(false), 3);
  }
  EXPECT_EQ(descriptorsHere(false), 0);
}

TEST_F(FilesOnDisk, AreLockedForOneOpenerAtATime) {
  std::optional<FileLock> first = FileLock::Open(disk / "lock");
  std::optional<FileLock> second = FileLock::Open(disk / "lock");
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(first->TryLock());
  EXPECT_TRUE(first->TryLock());
  EXPECT_FALSE(second->TryLock());
  first.reset();
  EXPECT_TRUE(second->TryLock());
  EXPECT_TRUE(second->IsCurrent());
  fs::remove(disk / "lock");
  EXPECT_FALSE(second->IsCurrent());
  const std::optional<FileLock> third = FileLock::Open(disk / "lock");
  EXPECT_FALSE(second->IsCurrent());
  EXPECT_TRUE(third->IsCurrent());
  EXPECT_FALSE(FileLock::Open(disk / "missing/lock"));
}

TEST_F(FilesOnDisk, KeepDirectoriesAndFilesApart) {
  const std::string directory = disk.MakeDirectory("dir");
  const std::string file = disk.Write("file", "x");
  EXPECT_FALSE(RemoveFile(directory));
  EXPECT_FALSE(RemoveEmptyDirectory(file));
  EXPECT_FALSE(RemoveEmptyDirectory(disk.Root()));
  EXPECT_FALSE(IsExecutableFile(directory));
  EXPECT_FALSE(IsExecutableFile(file));
  fs::permissions(file, fs::perms::owner_all);
  EXPECT_TRUE(IsExecutableFile(file));
  EXPECT_FALSE(ListNames(file));
  FileStatus status;
  EXPECT_EQ(GetFileStatus(file + "/x", status), ENOTDIR);
}

TEST_F(FilesOnDisk, GetNamesThatNothingElseHas) {
  for (const std::string& root : {disk.Root(), disk / ""}) {
    const std::optional<std::string> directory = MakeUniqueDirectory(root, "tq");
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->find((disk / "tq")), 0U);
    EXPECT_EQ(fs::status(*directory).permissions(), fs::perms::owner_all);
    const std::optional<std::string> file = MakeUniqueFile(root, "tq");
    ASSERT_TRUE(file);
    EXPECT_TRUE(fs::is_regular_file(*file));
  }
  EXPECT_EQ(ListNames(disk.Root())->size(), 6U);
  EXPECT_EQ(MakeUniqueDirectory(disk / "missing", "tq"), std::nullopt);
  EXPECT_TRUE(MakeDirectory(disk / "private", true));
  EXPECT_EQ(fs::status(disk / "private").permissions(), fs::perms::owner_all);
  EXPECT_FALSE(MakeDirectory(disk / "private"));
}

}  // namespace
}  // namespace tlm::platform
