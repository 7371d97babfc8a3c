// What the hive files hold, and what becomes of their texts.
#include "libtsenv/registry.h"

#include "settings_fixture.h"

namespace tlm {
namespace {

struct RegistryTest : SettingsTest {
  // The string value NAME of the key, or "none".
  std::string Read(const std::string& line) {
    WriteUserHive("[SOFTWARE\\Key]\n" + line + "\n");
    std::string text = "untouched";
    return ReadRegistryString(RegistryHive::User, "SOFTWARE\\Key", "NAME", text) ? text : "none";
  }
};

TEST_F(RegistryTest, FindsAValueInItsSectionWhateverTheLinesLookLike) {
  const struct {
    const char *Hive, *Text;
  } cases[] = {
      {"[software\\KEY]\nname=text", "text"},
      {"\xEF\xBB\xBF[SOFTWARE\\Key]\r\nNAME=text\r\n", "text"},
      {" [ SOFTWARE\\Key ] \n\t NAME = two words \n", "two words"},
      {"[SOFTWARE\\Key]\nNAME=a=b\nNAME=second\n", "a=b"},
      {"[SOFTWARE\\Key]\n;NAME=x\n# NAME=x\nNAME\nNAMES=x\nNAME=y\n", "y"},
      {"NAME=x\n[SOFTWARE]\nNAME=x\n[SOFTWARE\\Key\\Sub]\nNAME=x\n[SOFTWARE\\Key]\nNAME=y\n", "y"},
      {"[SOFTWARE\\Key]\n[Other]\nNAME=x\n", "none"},
      {"[SOFTWARE\\Key]\nNAME=\n", ""},
      {"[SOFTWARE\\Key]\nNAME=dword:7\n", "none"},
      {"[SOFTWARE\\Key]\nNAME=expand:text\n", "text"},
  };
  for (const auto& [hive, expected] : cases) {
    WriteMachineHive(hive);
    std::string text = "untouched";
    const bool found = ReadRegistryString(RegistryHive::Machine, "SOFTWARE\\Key", "NAME", text);
    EXPECT_EQ(found ? text : "none", expected) << hive;
  }
}

TEST_F(RegistryTest, AKeyExistsIfItsSectionStandsInTheFile) {
  EXPECT_FALSE(QueryRegistry(RegistryHive::Machine, "Key", "NAME").KeyExists) << "no file";
  WriteMachineHive("[Key]");
  EXPECT_TRUE(QueryRegistry(RegistryHive::Machine, "Key", "NAME").KeyExists);
  EXPECT_FALSE(QueryRegistry(RegistryHive::Machine, "Key\\Sub", "NAME").KeyExists);
  EXPECT_FALSE(QueryRegistry(RegistryHive::User, "Key", "NAME").KeyExists);
}

TEST_F(RegistryTest, ExpandsEveryString) {
  Set("TSTEST_A", "value");
  for (const std::string mark : {"", "expand:"}) {
    EXPECT_EQ(Read("NAME=" + mark + "<%TSTEST_A%>"), "<value>");
    EXPECT_EQ(Read("NAME=" + mark + "%TSTEST_NONE%/%TSTEST_A%"), "%TSTEST_NONE%/value");
    EXPECT_EQ(Read("NAME=" + mark + "100%%TSTEST_A%%"), "100%value%");
  }
}

TEST_F(RegistryTest, KeepsWithinItsBuffer) {
  EXPECT_EQ(Read("NAME=" + std::string(259, 'x')), std::string(259, 'x'));
  EXPECT_EQ(Read("NAME=" + std::string(260, 'x')), "untouched") << "there, but not readable";
  Set("TSTEST_A", std::string(200, 'a'));
  EXPECT_EQ(Read("NAME=%TSTEST_A%%TSTEST_A%"), std::string(259, 'a'));
}

TEST_F(RegistryTest, PutsWhatFollowsTheMarkBelowTheDocumentsFolder) {
  const std::string home = Folder / "home";
  std::filesystem::create_directories(home);
  Set("HOME", home);
  Set("XDG_CONFIG_HOME", Folder / "config");
  EXPECT_EQ(Read("NAME=x%MY_DOCUMENTS%\\sub"), home + "/Documents/sub");
  EXPECT_TRUE(std::filesystem::is_directory(home + "/Documents")) << "made";

  Write("config/user-dirs.dirs",
        "# comment\nXDG_DESKTOP_DIR=\"$HOME/x\"\nXDG_DOCUMENTS_DIR=\"$HOME/My \\\"Papers\\\"\"\n");
  EXPECT_EQ(Read("NAME=%MY_DOCUMENTS%//sub"), home + "/My \"Papers\"/sub");
  EXPECT_EQ(Read("NAME=%MY_DOCUMENTS%sub"), "%MY_DOCUMENTS%sub");

  const std::string file = Write("config/file", "");
  Write("config/user-dirs.dirs", "XDG_DOCUMENTS_DIR=\"" + file + "\"\n");
  EXPECT_EQ(Read("NAME=x%MY_DOCUMENTS%\\sub"), "x%MY_DOCUMENTS%\\sub") << "no folder to be had";
}

}  // namespace
}  // namespace tlm
