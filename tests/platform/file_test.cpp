// Open files, their locks, and the names that lead to them.
#include "platform/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/file_lock.h"
#include "platform/file_system.h"
#include "support/sandbox.h"

namespace tlm::platform {
namespace {
namespace fs = std::filesystem;

struct FilesOnDisk : ::testing::Test {
  test::Sandbox disk;
};

TEST_F(FilesOnDisk, AreWrittenAsTheModeSays) {
  const std::pair<File::Mode, const char*> cases[] = {
      {File::Mode::Truncate, "new"}, {File::Mode::Append, "formernew"}, {File::Mode::Update, "newmer"}};
  for (const auto& [mode, content] : cases) {
    std::optional<File> file = File::Open(disk.Write("file", "former"), mode);
    EXPECT_TRUE(file && file->Write("new") && file->Close());
    EXPECT_EQ(disk.Read("file"), content);
    EXPECT_FALSE(File::Open(disk.Root(), mode));
    fs::remove(disk / "file");
    EXPECT_TRUE(File::Open(disk / "file", mode)) << "made";
  }
  ASSERT_EQ(mkfifo(disk.Path("pipe").c_str(), 0600), 0);
  const std::optional<File> reader = File::Open(disk / "pipe", File::Mode::Read);
  for (const auto& [mode, content] : cases) EXPECT_FALSE(File::Open(disk / "pipe", mode)) << "its reader may rest";
  EXPECT_FALSE(File::Open("/dev/full", File::Mode::Append)->Write("lost"));
}

TEST_F(FilesOnDisk, AreClosedByScope) {
  const auto openFiles = [] { return ListNames("/proc/self/fd")->size(); };
  const std::size_t before = openFiles();
  {
    std::optional<File> file = File::Open(disk / "file", File::Mode::Truncate);
    const std::optional<FileLock> lock = FileLock::Open(disk / "lock");
    *file = *File::Open(disk / "file", File::Mode::Append);
    const File moved = std::move(*file);
    EXPECT_EQ(openFiles(), before + 2);
  }
  EXPECT_EQ(openFiles(), before);
}

TEST_F(FilesOnDisk, HaveDirectoriesForTheOwnerAlone) {
  const std::optional<std::string> directory = MakeUniqueDirectory(disk.Root(), "tq");
  ASSERT_TRUE(directory && directory->starts_with(disk / "tq"));
  EXPECT_EQ(fs::status(*directory).permissions(), fs::perms::owner_all);
}
}  // namespace
}  // namespace tlm::platform
