// Where the product of a client's release is installed on this machine.
#include "libtsenv/install_path.h"

#include "settings_fixture.h"

namespace tlm {
namespace {
struct InstallPathTest : SettingsTest {
  std::string Find(const std::string& token) {
    Traced.clear();
    return InstallPath(token, [this](const std::string& line) { Traced += line; });
  }
  std::string Traced;
  const std::string Key = "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\";
};

TEST_F(InstallPathTest, LooksUnderTheReleaseOfTheToken) {
  const std::pair<std::string, std::string> cases[] = {
      {"tlm2010", "2010"}, {"2010", "2010"}, {"tlm2010sp1", "2010sp1"}, {"plm300", "3.0"}, {"plm310", "3.0"},
      {"plm312", "3.2"},   {"tlm31", "3."}};
  for (const auto& [token, version] : cases) {
    const std::string key = Key + version + "\\Environment";
    WriteMachineHive('[' + key + "]\nTSQOR_HOME=/opt/" + version + "\n");
    EXPECT_EQ(Find(token), "/opt/" + version);
    EXPECT_EQ(Traced, "Find install path " + token + "\nOpening Key " + key + "\n");
  }
  for (const std::string noRelease : {"", "tlm", "tlm2", "7"}) {
    EXPECT_THROW(Find(noRelease), std::out_of_range) << noRelease;
    EXPECT_EQ(Traced, "Find install path " + noRelease + "\n");
  }
}

TEST_F(InstallPathTest, AKeyEndsTheSearchWhateverItHoldsElseItIsTheOwnHomeOrAboveTheProgram) {
  WriteUserHive('[' + Key + "2011\\Environment]\nTSQOR_HOME=/of/the/user\n");
  EXPECT_EQ(Find("tlm2011"), std::filesystem::path(platform::ExecutablePath()).parent_path().string() + "/..");
  Set("TSQOR_HOME", "/own/home");
  EXPECT_EQ(Find("tlm2011"), "/own/home");
  const std::pair<std::string, std::string> cases[] = {
      {"OTHER=x", ""}, {"TSQOR_HOME=", ""}, {"TSQOR_HOME=expand:%HOME%/x", "%HOME%/x"}};
  for (const auto& [line, path] : cases) {
    WriteMachineHive('[' + Key + "2010\\Environment]\n" + line + '\n');
    EXPECT_EQ(Find("tlm2010"), path) << line;
  }
}
}  // namespace
}  // namespace tlm
