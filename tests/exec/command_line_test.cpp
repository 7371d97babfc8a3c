// Taking a job's command apart, and composing what its process is given.
#include "exec/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/environment.h"

namespace tlm {
namespace {

using ::testing::ElementsAre;
using Tokens = std::vector<std::string>;

TEST(CommandLine, TheFirstCommandIsCutOffAndTakenApart) {
  const struct {
    const char* Buffer;
    Tokens Expected;
    const char* Rest;
  } cases[] = {
      {"a \"b c\" d;", {"a", "b c", "d"}, ""},
      {"x;y;", {"x"}, "y;"},
      {"x; \t\n y;", {"x"}, "y;"},
      {"x ; ", {"x"}, ""},
      {"\"x;y\";", {"x;y"}, ""},
      {"x\\;y;", {"x;y"}, ""},
      {"'a\"b' \"c'd\";", {"a\"b", "c'd"}, ""},
      {"a\\ b;", {"a b"}, ""},
      {"a\\\\b \\\"c \\'d;", {"a\\b", "\"c", "'d"}, ""},
      {"\"c:\\dir\\\" '\\';", {"c:\\dir\\", "\\"}, ""},
      {"pre\"mid dle\"'post';", {"premid dlepost"}, ""},
      {"\"\" '' a;", {"a"}, ""},
      {"\v a\fb\r\n;", {"a", "b"}, ""},
      {";;x;", {}, ";x;"},
      {"\xA0\xE4;", {"\xA0\xE4"}, ""},
  };
  for (const auto& [text, expected, rest] : cases) {
    std::string_view buffer = text;
    Tokens tokens = {"left over"};
    EXPECT_TRUE(NextCommand(buffer, tokens)) << text;
    EXPECT_EQ(tokens, expected) << text;
    EXPECT_EQ(buffer, rest) << text;
  }
  EXPECT_EQ(JoinTokens({"Pa", "b c", "d"}), "Pa b c d ");
}

TEST(CommandLine, ACommandThatIsNotClosedStaysInTheBuffer) {
  for (const char* text : {"a b", "a 'b;", "a \"b;", "a b\\;", "a b\\"}) {
    std::string_view buffer = text;
    Tokens tokens;
    EXPECT_FALSE(NextCommand(buffer, tokens)) << text;
    EXPECT_EQ(buffer, text);
    EXPECT_THAT(tokens, ElementsAre("a", ::testing::StartsWith("b"))) << text;
  }
}

TEST(CommandLine, AMillionCommandsTakeNoLongerThanTheirLength) {
  const std::string text(1'000'000, ';');
  std::string_view buffer = text;
  Tokens tokens;
  std::size_t commands = 0;
  while (NextCommand(buffer, tokens)) ++commands;
  EXPECT_EQ(commands, text.size());
}

TEST(ChildEnvironmentTest, TheJobsEntriesStandFirstAndReplaceTheServersOwn) {
  platform::SetVariable("TS_ENTERPRISE_ENV", "inherited");
  platform::SetVariable("HOME_OF_JOB", "inherited");
  platform::SetVariable("HOME_OF_JOB_TOO", "kept");
  const Tokens plain = ChildEnvironment("", "", 0);
  EXPECT_EQ(plain, platform::EnvironmentEntries());

  Tokens entries = ChildEnvironment("HOME_OF_JOB=/x=y", "key", 5'000'000'000);
  ASSERT_EQ(entries.size(), plain.size() + 1);
  EXPECT_THAT(Tokens(entries.begin(), entries.begin() + 3),
              ElementsAre("TS_ENTERPRISE_ENV_PARENT_ID=5000000000", "TS_ENTERPRISE_ENV=key", "HOME_OF_JOB=/x=y"));
  Tokens inherited = plain;
  std::erase(inherited, "TS_ENTERPRISE_ENV=inherited");
  std::erase(inherited, "HOME_OF_JOB=inherited");
  EXPECT_EQ(Tokens(entries.begin() + 3, entries.end()), inherited);
  EXPECT_EQ(ChildEnvironment("HOME_OF_JOB", "", -2).size(), plain.size() + 2) << "an entry without '=' names nothing";
}

TEST(FailureTextTest, EveryCharacterTakesTwoBytesLowByteFirst) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"/bin/a b ", u"/bin/a b "},
      {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", u"a\u00E4\u20AC\U0001F600"},
      // No text: cut short, over-long, a surrogate, beyond the last character, a stray continuation.
      {"\xE2\x82", u"\u00E2\u0082"},
      {"\xC0\x80\xE0\x80\x80", u"\u00C0\u0080\u00E0\u0080\u0080"},
      {"\xED\xA0\x80", u"\u00ED\u00A0\u0080"},
      {"\xF4\x90\x80\x80\x80", u"\u00F4\u0090\u0080\u0080\u0080"},
  };
  for (const auto& [line, expected] : cases) {
    std::string bytes;
    for (const char16_t unit : u"Couldn't execute " + expected + u"\n") {
      bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    }
    EXPECT_EQ(FailureText(line), bytes) << ::testing::PrintToString(line);
  }
}

}  // namespace
}  // namespace tlm
