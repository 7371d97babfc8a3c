// Taking paths apart and putting them together; no file is looked at.
#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "util/mfile.h"

namespace tlm {
namespace {
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
               {"dir/", "dir/", "", "", "dir/", "dir/"},
               {"a.b/c", "a.b/", "c", "c", ".b/c", "a"},
               {"a\\b/c", "a\\b/", "c", "c", "a\\b/c", "a\\b/c"},
               {"a/b\\c.d", "a/b\\", "c.d", "c", ".d", "a/b\\c"},
               {"x.tar.gz", "", "x.tar.gz", "x.tar", ".gz", "x.tar"},
               {"d/.hidden", "d/", ".hidden", "", ".hidden", "d/"},
               {"d/..", "d/", "..", ".", ".", "d/."}});
}

TEST(MFilePath, TakesNewPartsWithTheSeparatorOfTheDirectoryGiven) {
  using Change = void (MFile::*)(const std::string&);
  const std::tuple<Change, std::string, std::string, std::string> cases[] = {
      {&MFile::SetDirectory, "f\\g", "d/e", "d/e/g"},
      {&MFile::SetDirectory, "f\\g", "d\\", "d\\g"},
      {&MFile::SetDirectory, "f/g", "d", "d\\g"},
      {&MFile::SetDirectory, "f/g", "d/", "d/g"},
      {&MFile::SetDirectory, "g", "d/e\\", "d/e\\/g"},
      {&MFile::SetDirectory, "g", "", "\\g"},
      {&MFile::SetName, "a.b/c.d", "name", "a.b/name"},
      {&MFile::SetStem, "a.b/c.d", "stem", "a.b/stem.d"},
      {&MFile::SetStem, "a.b/c", "x", "a.b/x.b/c"},  // the dot of the directory counts
      {&MFile::SetExtension, "a.b/c.d", ".new", "a.b/c.new"},
      {&MFile::MakeAbsolute, "", "/base", ""},
      {&MFile::MakeAbsolute, "/a", "/base", "/a"},
      {&MFile::MakeAbsolute, "\\a", "/base", "\\a"},
      {&MFile::MakeAbsolute, "C:a", "/base", "C:a"},
      {&MFile::MakeAbsolute, "a/b", "/base", "/base/a/b"},
      {&MFile::MakeAbsolute, "a", "/base/", "/base/a"},
      {&MFile::MakeAbsolute, "a", "c:\\", "c:\\a"},
  };
  for (const auto& [set, path, part, changed] : cases) {
    MFile file(path);
    (file.*set)(part);
    EXPECT_EQ(file.Path(), changed) << path << " with " << part;
  }
  MFile file("a");
  file.MakeAbsolute();
  EXPECT_EQ(file.Path(), std::filesystem::current_path() / "a");
}

TEST(MFilePath, StepsByTheCharactersOfTheLocaleAndOverBrokenOnesByteByByte) {
  ASSERT_TRUE(std::setlocale(LC_CTYPE, "C.utf8"));
  ExpectParts({{"d\xC3\xA9/v\xC3\xBC.\xE2\x82\xAC", "d\xC3\xA9/", "v\xC3\xBC.\xE2\x82\xAC", "v\xC3\xBC",
                ".\xE2\x82\xAC", "d\xC3\xA9/v\xC3\xBC"},
               {"a\xC3\\\xF0", "a\xC3\\", "\xF0", "\xF0", "a\xC3\\\xF0", "a\xC3\\\xF0"}});
  const test::Sandbox disk;
  const std::string locale = disk / "zh_TW.BIG5";
  const int made = std::system(("localedef --no-warnings=ascii -c -i zh_TW -f BIG5 " + locale + " >&2").c_str());
  setenv("LOCPATH", disk.Root().c_str(), 1);
  const bool big5 = made != -1 && std::setlocale(LC_CTYPE, "zh_TW.BIG5") != nullptr;
  unsetenv("LOCPATH");
  if (big5) {
    ExpectParts({{"d/\xA5\x5C.x", "d/", "\xA5\x5C.x", "\xA5\x5C", ".x", "d/\xA5\x5C"},
                 {"\xA5\x5C\\n", "\xA5\x5C\\", "n", "n", "\xA5\x5C\\n", "\xA5\x5C\\n"}});
  }
  std::setlocale(LC_CTYPE, "C");
  if (!big5) GTEST_SKIP() << "the system cannot make a locale with a backslash as a trail byte";
}
}  // namespace
}  // namespace tlm
