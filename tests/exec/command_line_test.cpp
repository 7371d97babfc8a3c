// Taking a job's command apart.
#include "exec/command_line.h"

#include <gtest/gtest.h>

namespace tlm {
namespace {
using Tokens = std::vector<std::string>;

TEST(CommandLine, TheFirstCommandIsCutOffAndTakenApart) {
  const std::tuple<const char*, Tokens, const char*> cases[] = {
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
  };
  for (const auto& [text, expected, rest] : cases) {
    std::string_view buffer = text;
    Tokens tokens = {"left over"};
    EXPECT_TRUE(NextCommand(buffer, tokens)) << text;
    EXPECT_EQ(tokens, expected) << text;
    EXPECT_EQ(buffer, rest) << text;
  }
  for (const char* open : {"a b", "a 'b;", "a \"b;", "a b\\;", "a b\\"}) {
    std::string_view buffer = open;
    Tokens tokens;
    EXPECT_FALSE(NextCommand(buffer, tokens)) << open;
    EXPECT_EQ(buffer, open);
  }
}
}  // namespace
}  // namespace tlm
