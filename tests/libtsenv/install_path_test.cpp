// Where the product of a client's release is installed on this machine.
#include "libtsenv/install_path.h"

#include <stdexcept>
#include <vector>

#include "settings_fixture.h"

namespace tlm {
namespace {

struct InstallPathTest : SettingsTest {
  std::string Find(const std::string& token) {
    Traced.clear();
    return InstallPath(token, [this](const std::string& line) { Traced.push_back(line); });
  }
  static std::string KeyOf(const std::string& version) {
    return "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\" + version + "\\Environment";
  }
  std::vector<std::string> Traced;
};

TEST_F(InstallPathTest, LooksUnderTheReleaseOfTheToken) {
  const struct {
    const char *Token, *Version;
  } cases[] = {{"tlm2010", "2010"}, {"2010", "2010"}, {"tlm2010sp1", "2010sp1"}, {"plm300", "3.0"}, {"plm310", "3.0"},
               {"plm312", "3.2"},   {"tlm31", "3."}};
  for (const auto& [token, version] : cases) {
    WriteMachineHive('[' + KeyOf(version) + "]\nTSQOR_HOME=/opt/" + version + "\n");
    EXPECT_EQ(Find(token), std::string("/opt/") + version);
    EXPECT_EQ(Traced, (std::vector<std::string>{std::string("Find install path ") + token + "\n",
                                                "Opening Key " + KeyOf(version) + "\n"}));
  }
}

TEST_F(InstallPathTest, RefusesATokenWithoutAReleaseInIt) {
  for (const char* token : {"", "tlm", "tlm2", "7"}) EXPECT_THROW(Find(token), std::out_of_range) << token;
  EXPECT_EQ(Traced.size(), 1u) << "the token is traced first";
}

TEST_F(InstallPathTest, AKeyEndsTheSearchWhateverItHolds) {
  Set("TSQOR_HOME", "/own/home");
  const struct {
    std::string Line, Path;
  } cases[] = {{"OTHER=x", ""},
               {"TSQOR_HOME=", ""},
               {"TSQOR_HOME=expand:%HOME%/x", "%HOME%/x"},
               {"TSQOR_HOME=" + std::string(2048, 'x'), ""}};
  for (const auto& [line, path] : cases) {
    WriteMachineHive('[' + KeyOf("2010") + "]\n" + line + '\n');
    EXPECT_EQ(Find("tlm2010"), path) << line;
  }
}

TEST_F(InstallPathTest, WithoutAKeyItIsTheOwnHomeOrWhatLiesAboveTheProgram) {
  WriteUserHive('[' + KeyOf("2011") + "]\nTSQOR_HOME=/of/the/user\n");
  const std::string program = platform::ExecutablePath();
  EXPECT_EQ(Find("tlm2011"), std::filesystem::path(program).parent_path().string() + "/..");
  Set("TSQOR_HOME", "/own/home");
  EXPECT_EQ(Find("tlm2011"), "/own/home");
  EXPECT_EQ(Find("plm300"), "/own/home");
}

}  // namespace
}  // namespace tlm
