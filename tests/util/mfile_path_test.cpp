// Taking paths apart and putting them together; no file is looked at.
#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/file_system.h"
#include "support/sandbox.h"
#include "util/mdirectorychanger.h"
#include "util/mfile.h"

namespace tlm {
namespace {

using test::Sandbox;

const std::string kLongName(255, 'n');

// The locale is the process's: back to the plain one afterwards.
struct InLocale {
  explicit InLocale(const std::string& name) : Found(std::setlocale(LC_CTYPE, name.c_str()) != nullptr) {}
  ~InLocale() { std::setlocale(LC_CTYPE, "C"); }
  const bool Found;
};

struct Parts {
  std::string Path, Directory, Name, Stem, Extension, WithoutExtension;
};

void ExpectParts(const std::vector<Parts>& cases) {
  for (const Parts& expected : cases) {
    const MFile file(expected.Path);
    EXPECT_EQ(file.DirectoryPart(), expected.Directory) << expected.Path;
    EXPECT_EQ(file.Name(), expected.Name) << expected.Path;
    EXPECT_EQ(file.Stem(), expected.Stem) << expected.Path;
    EXPECT_EQ(file.Extension(), expected.Extension) << expected.Path;
    EXPECT_EQ(file.PathWithoutExtension(), expected.WithoutExtension) << expected.Path;
  }
}

TEST(MFilePath, ComesApartAtTheLastSeparatorOfEitherKindAndAtTheLastDotAnywhere) {
  ExpectParts({{"", "", "", "", "", ""},
               {"plain", "", "plain", "plain", "plain", "plain"},
               {"dir/", "dir/", "", "", "dir/", "dir/"},
               {"a.b/c", "a.b/", "c", "c", ".b/c", "a"},
               {"a.b/", "a.b/", "", "", ".b/", "a"},
               {"a\\b/c", "a\\b/", "c", "c", "a\\b/c", "a\\b/c"},
               {"a/b\\c.d", "a/b\\", "c.d", "c", ".d", "a/b\\c"},
               {"x.tar.gz", "", "x.tar.gz", "x.tar", ".gz", "x.tar"},
               {"d/.hidden", "d/", ".hidden", "", ".hidden", "d/"},
               {"d/..", "d/", "..", ".", ".", "d/."},
               {"d/ends.", "d/", "ends.", "ends", ".", "d/ends"},
               {"/" + kLongName + ".x", "/", kLongName + ".x", kLongName, ".x", "/" + kLongName}});
}

TEST(MFilePath, TakesBrokenBytesOneByOneInAMultiByteLocale) {
  const InLocale utf8("C.utf8");
  ASSERT_TRUE(utf8.Found);
  ExpectParts({{"d\xC3\xA9j\xC3\xA0/v\xC3\xBC.\xE2\x82\xAC", "d\xC3\xA9j\xC3\xA0/", "v\xC3\xBC.\xE2\x82\xAC",
                "v\xC3\xBC", ".\xE2\x82\xAC", "d\xC3\xA9j\xC3\xA0/v\xC3\xBC"},
               {"\xE2\x82/\xC3.x", "\xE2\x82/", "\xC3.x", "\xC3", ".x", "\xE2\x82/\xC3"},
               {"a\xC3\\\xF0", "a\xC3\\", "\xF0", "\xF0", "a\xC3\\\xF0", "a\xC3\\\xF0"}});
}

TEST(MFilePath, DoesNotTakeATrailByteForASeparator) {
  const Sandbox disk;
  const std::string make =
      "localedef --no-warnings=ascii -c -i zh_TW -f BIG5 " + (disk / "zh_TW.BIG5") + " >/dev/null 2>&1";
  const bool made = std::system(make.c_str()) != -1;
  setenv("LOCPATH", disk.Root().c_str(), 1);
  const InLocale big5("zh_TW.BIG5");
  unsetenv("LOCPATH");
  if (!made || !big5.Found) GTEST_SKIP() << "the system cannot make a locale with such characters";
  ExpectParts({{"d/\xA5\x5C.x", "d/", "\xA5\x5C.x", "\xA5\x5C", ".x", "d/\xA5\x5C"},
               {"\xA5\x5C\\n", "\xA5\x5C\\", "n", "n", "\xA5\x5C\\n", "\xA5\x5C\\n"}});
  MFile file("n");
  file.MakeAbsolute("/\xA5\x5C");
  EXPECT_EQ(file.Path(), "/\xA5\x5C/n");
}

TEST(MFilePath, TakesNewPartsInTheFormOfTheDirectoryGiven) {
  const auto moved = [](const std::string& path, const std::string& directory) {
    MFile file(path);
    file.SetDirectory(directory);
    return file.Path();
  };
  EXPECT_EQ(moved("f\\g", "d/e"), "d/e/g");
  EXPECT_EQ(moved("f\\g", "d\\"), "d\\g");
  EXPECT_EQ(moved("f/g", "d"), "d\\g");
  EXPECT_EQ(moved("f/g", "d/"), "d/g");
  EXPECT_EQ(moved("g", "d/e\\"), "d/e\\/g");
  EXPECT_EQ(moved("g", ""), "\\g");

  MFile file("a.b/c.d");
  file.SetStem("stem");
  EXPECT_EQ(file.Path(), "a.b/stem.d");
  file.SetExtension(".new");
  EXPECT_EQ(file.Path(), "a.b/stem.new");
  file.SetName("name");
  EXPECT_EQ(file.Path(), "a.b/name");
  file.SetStem("x");
  EXPECT_EQ(file.Path(), "a.b/x.b/name") << "the dot of the directory counts";
}

TEST(MFilePath, BecomesAbsoluteUnlessItIs) {
  const auto absolute = [](const std::string& path, const std::string& base) {
    MFile file(path);
    file.MakeAbsolute(base);
    return file.Path();
  };
  for (const std::string path : {"", "/a", "\\a", "C:a"}) EXPECT_EQ(absolute(path, "/base"), path);
  EXPECT_EQ(absolute("a/b", "/base"), "/base/a/b");
  EXPECT_EQ(absolute("a", "/base/"), "/base/a");
  EXPECT_EQ(absolute("a", "c:\\"), "c:\\a");

  const Sandbox disk;
  const std::string before = platform::CurrentDirectory();
  {
    const MDirectoryChanger changer(disk.Root());
    MFile file("a");
    file.MakeAbsolute();
    EXPECT_EQ(file.Path(), std::filesystem::canonical(disk.Root()).string() + "/a");
  }
  EXPECT_EQ(platform::CurrentDirectory(), before);
}

}  // namespace
}  // namespace tlm
