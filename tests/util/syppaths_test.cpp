// Joining a path and a file by the rules of each kind of file system.
#include "util/syppaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace tlm {
namespace {

using testing::HasSubstr;

struct MakeFileSpec : ::testing::Test {
  ~MakeFileSpec() override { sypSetFileSystem(sypUNIX); }

  // The joined text, or "failed"; Errors keeps what was complained of.
  std::string Join(const char* path, const char* file, int size = 64) {
    std::string buffer(100, '#');
    testing::internal::CaptureStderr();
    const int result = sypMakeFileSpec(path, file, buffer.data(), size);
    Errors = testing::internal::GetCapturedStderr();
    return result == 1 ? buffer.c_str() : buffer[0] == '\0' || buffer[0] == '#' ? "failed" : "failed half-way";
  }

  std::string Errors;
};

TEST_F(MakeFileSpec, JoinsByTheKindThatIsSet) {
  EXPECT_EQ(Join("/home/user", "dat"), "/home/user/dat") << "kind of this system";
  const struct {
    int Kind;
    const char *Path, *Joined;
  } cases[] = {
      {sypVMS, "DISK:[DIR]", "DISK:[DIR]file"}, {sypDOS, "c:\\dir", "c:\\dir\\file"},
      {sypDOS, "c:\\dir\\", "c:\\dir\\file"},   {sypDOS, "", "\\file"},
      {sypUNIX, "/dir/", "/dir//file"},         {sypUNIX, "", "/file"},
  };
  for (const auto& [kind, path, joined] : cases) {
    sypSetFileSystem(kind);
    EXPECT_EQ(Join(path, "file"), joined) << kind << ' ' << path;
    EXPECT_EQ(Errors, "");
  }
}

TEST_F(MakeFileSpec, NeedsRoomForTheTerminator) {
  EXPECT_EQ(Join("/dir", "file", 10), "/dir/file");
  EXPECT_EQ(Join("/dir", "file", 9), "failed");
  EXPECT_THAT(Errors, HasSubstr("Not enough room in buffer to hold string \"file\": 0\n"));
  EXPECT_EQ(Join("/dir", "file", 3), "failed");
  EXPECT_THAT(Errors, HasSubstr("Not enough room in buffer to hold string \"/dir\": -1\n"));
}

TEST_F(MakeFileSpec, ComplainsOfBadArgumentsButNotOfAnEmptyFile) {
  EXPECT_EQ(Join("/dir", ""), "failed");
  EXPECT_EQ(Errors, "");
  const auto refused = [this](const char* path, const char* file, int size) {
    return Join(path, file, size) == "failed" && Errors.find("| Returned on Assertion Failure:\n") != std::string::npos;
  };
  EXPECT_TRUE(refused("/dir", nullptr, 64));
  EXPECT_TRUE(refused(nullptr, "file", 64));
  EXPECT_TRUE(refused("/dir", "file", 0));
  sypSetFileSystem(3);
  EXPECT_TRUE(refused("/dir", "file", 64));
}

}  // namespace
}  // namespace tlm
