// The framed messages on standard error, and joining a path and a file.
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

TEST(MakeFileSpec, JoinsWhatFitsTheBuffer) {
  char buffer[10];
  EXPECT_EQ(sypMakeFileSpec("/dir", "file", buffer, 10), 1);
  EXPECT_STREQ(buffer, "/dir/file");
  EXPECT_THAT(ErrorsOf([&] { EXPECT_EQ(sypMakeFileSpec("/dir", "file", buffer, 9), 0); }),
              testing::HasSubstr("Not enough room in buffer to hold string \"file\": 0\n"));
  EXPECT_STREQ(buffer, "");
}

}  // namespace
}  // namespace tlm
