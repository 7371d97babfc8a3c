// What the hive files hold, and what becomes of their texts.
#include "libtsenv/registry.h"

#include "settings_fixture.h"

namespace tlm {
namespace {
struct RegistryTest : SettingsTest {
  // The string value NAME of the key, or "none".
  std::string Read(const std::string& hive) const {
    WriteUserHive(hive);
    std::string text = "untouched";
    return ReadRegistryString(RegistryHive::User, "SOFTWARE\\Key", "NAME", text) ? text : "none";
  }
  std::string ReadLine(const std::string& line) const { return Read("[SOFTWARE\\Key]\nNAME=" + line + "\n"); }
};

TEST_F(RegistryTest, FindsAValueInItsSectionWhateverTheLinesLookLike) {
  const std::pair<const char*, const char*> cases[] = {
      {"[software\\KEY]\nname=text", "text"},
      {"\xEF\xBB\xBF[SOFTWARE\\Key]\r\nNAME=text\r\n", "text"},
      {" [ SOFTWARE\\Key ] \n\t NAME = two words \n", "two words"},
      {"[SOFTWARE\\Key]\n;NAME=x\n# NAME=x\nNAME\nNAMES=x\nNAME=a=b\nNAME=second\n", "a=b"},
      {"NAME=x\n[SOFTWARE]\nNAME=x\n[SOFTWARE\\Key\\Sub]\nNAME=x\n[SOFTWARE\\Key]\n[Other]\nNAME=y\n", "none"},
      {"[SOFTWARE\\Key]\nNAME=\n", ""},
      {"[SOFTWARE\\Key]\nNAME=dword:7\n", "none"},
  };
  for (const auto& [hive, expected] : cases) EXPECT_EQ(Read(hive), expected) << hive;
  EXPECT_TRUE(QueryRegistry(RegistryHive::User, "SOFTWARE\\KEY", "OTHER").KeyExists);
  EXPECT_FALSE(QueryRegistry(RegistryHive::User, "SOFTWARE", "NAME").KeyExists);
}

TEST_F(RegistryTest, ExpandsEveryStringWithinItsBuffer) {
  Set("TSTEST_A", "value");
  EXPECT_EQ(ReadLine("%TSTEST_NONE%/%TSTEST_A%"), "%TSTEST_NONE%/value");
  EXPECT_EQ(ReadLine("expand:100%%TSTEST_A%%"), "100%value%");
  EXPECT_EQ(ReadLine(std::string(259, 'x')), std::string(259, 'x'));
  EXPECT_EQ(ReadLine(std::string(260, 'x')), "untouched") << "there, but not readable";
  Set("TSTEST_A", std::string(200, 'a'));
  EXPECT_EQ(ReadLine("%TSTEST_A%%TSTEST_A%"), std::string(259, 'a'));
}

TEST_F(RegistryTest, PutsWhatFollowsTheMarkBelowTheDocumentsFolder) {
  Set("HOME", Disk.MakeDirectory("home"));
  Set("XDG_CONFIG_HOME", Disk / "config");
  EXPECT_EQ(ReadLine("x%MY_DOCUMENTS%\\sub"), Disk / "home/Documents/sub");
  Disk.Write("config/user-dirs.dirs", "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/My \\\"Papers\\\"\"\n");
  EXPECT_EQ(ReadLine("%MY_DOCUMENTS%//sub"), Disk / "home/My \"Papers\"/sub");
  EXPECT_EQ(ReadLine("%MY_DOCUMENTS%sub"), "%MY_DOCUMENTS%sub");
}
}  // namespace
}  // namespace tlm
