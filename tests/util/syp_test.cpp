// The framed messages on standard error, the ends of a program, and joining a path and a file.
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <string>

#include "util/syperror.h"
#include "util/syppaths.h"

namespace tlm {
namespace {
std::string ErrorsOf(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

void ExpectWarning(const std::string& message, const std::string& lines) {
  const std::string errors = ErrorsOf([&] { sypWarning(sypWhere("source.cpp", 7), "%s", message.c_str()); });
  EXPECT_EQ(errors, "\n-----\n| \aUnexpected Condition Encountered:\n" + lines + "-----\n") << message;
}

std::string Row(std::size_t length, char c = 'x') { return "| " + std::string(length, c) + "\n"; }

TEST(Warning, BreaksItsTextIntoLines) {
  const std::string w60(60, 'w'), w68(68, 'x');
  std::string fifteenRows;
  for (int i = 0; i < 15; ++i) fifteenRows += Row(68);
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"ends\n", "| ends\n"},
      {"\nafter an empty line", "| \n| after an empty line\n"},
      {std::string(200, 'x'), Row(68) + Row(68) + Row(64)},
      {w68, Row(68)},
      {w68 + " next", Row(68) + "| next\n"},
      {w68 + "\nnext", Row(68) + "| next\n"},
      {w60 + " a\tlengthy text", "| " + w60 + " a\n| lengthy text\n"},
      {std::string(5000, 'x'), fifteenRows + Row(1023 - 15 * 68)},
  };
  for (const auto& [message, lines] : cases) ExpectWarning(message, lines);

  ASSERT_EQ(sypSetMessageWidth(11), 1);
  ExpectWarning("123456789abc", "| 123456789\n| abc\n");
  EXPECT_EQ(sypSetMessageWidth(70), 1);
}

TEST(End, OfAFailedAssertionIsStatusOne) {
  EXPECT_EXIT(sypAssertFailed(sypWhere("a.cpp", 1), "count > 0"), testing::ExitedWithCode(1),
              "Assertion Failed: \"count > 0\"\n-----\n\nProgram Terminating on Assertion Failure.\n");
}

TEST(End, CallsTheLastFunctionFirstOfAtMost1024) {
  const auto fillTheListAndLeave = [] {
    int failures = sypAtExit([] { std::fputs("first\n", stderr); });
    for (int i = 0; i < 1022; ++i) failures += sypAtExit([] {});
    failures += sypAtExit([] { std::fputs("last, then ", stderr); });
    failures += 10 * sypAtExit([] { std::fputs("too many", stderr); });
    std::exit(failures);
  };
  EXPECT_EXIT(fillTheListAndLeave(), testing::ExitedWithCode(10), "^last, then first\n$");
  EXPECT_THAT(ErrorsOf([] { EXPECT_EQ(sypAtExit(nullptr), 1); }), testing::HasSubstr(kArgumentFailure));
}

TEST(MakeFileSpec, JoinsByTheKindOfFileSystemWhatFitsTheBuffer) {
  constexpr int kBuiltIn = -1;
  const struct {
    int Kind;
    const char *Path, *File;
    int Size;
    std::string Joined, Complaint;
  } cases[] = {
      {kBuiltIn, "/dir", "file", 64, "/dir/file", ""},
      {sypVMS, "DISK:[DIR]", "file", 64, "DISK:[DIR]file", ""},
      {sypDOS, "c:\\dir", "file", 64, "c:\\dir\\file", ""},
      {sypDOS, "c:\\dir\\", "file", 64, "c:\\dir\\file", ""},
      {sypDOS, "", "file", 64, "\\file", ""},
      {sypUNIX, "/dir/", "file", 64, "/dir//file", ""},
      {sypUNIX, "/dir", "file", 10, "/dir/file", ""},
      {sypUNIX, "/dir", "file", 9, "", "Not enough room in buffer to hold string \"file\": 0\n"},
      {sypUNIX, "/dir", "file", 3, "", "Not enough room in buffer to hold string \"/dir\": -1\n"},
      {sypUNIX, "/dir", "", 64, "", ""},
      {sypUNIX, "/dir", nullptr, 64, "untouched", kArgumentFailure},
      {sypUNIX, "/dir", "file", 0, "untouched", kArgumentFailure},
      {3, "/dir", "file", 64, "", kArgumentFailure},
  };
  for (const auto& [kind, path, file, size, joined, complaint] : cases) {
    if (kind != kBuiltIn) sypSetFileSystem(kind);
    char buffer[64] = "untouched";
    int result = -1;
    const std::string errors = ErrorsOf([&, directory = path, name = file, length = size] {
      result = sypMakeFileSpec(directory, name, buffer, length);
    });
    EXPECT_EQ(buffer, joined);
    EXPECT_EQ(result, joined.ends_with("file") ? 1 : 0) << joined;
    EXPECT_EQ(errors.empty(), complaint.empty()) << errors;
    EXPECT_THAT(errors, testing::HasSubstr(complaint));
  }
  sypSetFileSystem(sypUNIX);
}
}  // namespace
}  // namespace tlm
