// The framed messages on standard error, and the exit functions.
#include "util/syperror.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace tlm {
namespace {

std::string ErrorsOf(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

std::string WarningOf(const std::string& message) {
  return ErrorsOf([&] { sypWarning(sypWhere("source.cpp", 7), "%s", message.c_str()); });
}

std::string Framed(const std::string& lines) {
  return "\n-----\n| \aUnexpected Condition Encountered:\n" + lines + "-----\n";
}

std::string Row(std::size_t length, char c = 'x') { return "| " + std::string(length, c) + "\n"; }

TEST(Warning, BreaksItsTextIntoLinesOf68) {
  const std::string w60(60, 'w'), w68(68, 'x');
  const struct {
    std::string Message, Lines;
  } cases[] = {
      {"", ""},
      {"short", "| short\n"},
      {"ends\n", "| ends\n"},
      {"\nafter an empty line", "| \n| after an empty line\n"},
      {std::string(200, 'x'), Row(68) + Row(68) + Row(64)},
      {w68, Row(68)},
      {w68 + " next", Row(68) + "| next\n"},
      {w68 + "\nnext", Row(68) + "| next\n"},
      {w60 + " whatever", Row(60, 'w') + "| whatever\n"},
      {w60 + " a\tlengthy text", "| " + w60 + " a\n| lengthy text\n"},
      {w60 + "   twelve blanks", "| " + w60 + "  \n| twelve blanks\n"},
  };
  for (const auto& [message, lines] : cases) EXPECT_EQ(WarningOf(message), Framed(lines)) << message;
}

TEST(Warning, LosesWhatDoesNotFitItsBuffer) {
  std::string lines;
  for (int i = 0; i < 15; ++i) lines += Row(68);
  EXPECT_EQ(WarningOf(std::string(5000, 'x')), Framed(lines + Row(1023 - 15 * 68)));
}

TEST(Warning, FollowsTheWidthThatIsSet) {
  ASSERT_EQ(sypSetMessageWidth(11), 1);
  EXPECT_EQ(WarningOf("123456789abc"), Framed("| 123456789\n| abc\n"));
  for (const int width : {10, 1001}) {
    EXPECT_EQ(ErrorsOf([&] { EXPECT_EQ(sypSetMessageWidth(width), 0); }),
              Framed("| Returned\n| on\n| Assertion\n| Failure:\n"));
  }
  EXPECT_EQ(sypSetMessageWidth(70), 1);
}

TEST(Where, TellsSourceAndLine) { EXPECT_STREQ(sypWhere("syppaths.cpp", 12), "File syppaths.cpp, Line 12"); }

TEST(AssertFailed, EndsTheProgramWithStatusOne) {
  EXPECT_EXIT(sypAssertFailed(sypWhere("a.cpp", 1), "count > 0"), testing::ExitedWithCode(1),
              "Assertion Failed: \"count > 0\"\n-----\n\nProgram Terminating on Assertion Failure.\n");
}

TEST(AtExit, CallsTheLastFunctionFirstAndTakesAtMost1024) {
  const auto fillTheListAndLeave = [] {
    if (sypAtExit([] { std::fputs("first\n", stderr); }) != 0) std::abort();
    for (int i = 0; i < 1022; ++i) {
      if (sypAtExit([] {}) != 0) std::abort();
    }
    if (sypAtExit([] { std::fputs("last, then ", stderr); }) != 0) std::abort();
    if (sypAtExit([] { std::fputs("too many", stderr); }) != 1) std::abort();
    std::exit(3);
  };
  EXPECT_EXIT(fillTheListAndLeave(), testing::ExitedWithCode(3), "^last, then first\n$");
  EXPECT_EQ(ErrorsOf([] { EXPECT_EQ(sypAtExit(nullptr), 1); }), Framed("| Returned on Assertion Failure:\n"));
}

}  // namespace
}  // namespace tlm
