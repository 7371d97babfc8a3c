// Names and port that follow from the executable's path.
#include "libtsenv/runtime_identity.h"

#include "libtsenv/product_table.h"
#include "settings_fixture.h"

namespace tlm {
namespace {

struct IdentityTest : SettingsTest {
  RuntimeIdentity Identity;
};

TEST_F(IdentityTest, FollowsTheWordInTheProgramsPath) {
  const struct {
    const char *Path, *Code, *ShortName, *LongName, *PoolFile, *PortName;
    int Port;
  } cases[] = {
      {"/opt/tlm/bin/KSBJM", "", "tlmjm2010", "Corvanta Tessarine Lumora 2010 Job Manager", "/tlm2010_dp.sta",
       "TSQOR_JMPORT", 20317},
      {"./ksbjm.exe", "ksb", "ksbjm2010", "Corvanta Tessarine Kestrel 2010 Job Manager", "/ksb2010_dp.sta",
       "KSB_JMPORT", 20615},
      {"/vrkjm/tlmjm", "vrk", "vrkjm2010", "Corvanta Vireo Link 2010 Job Manager", "/vrk2010_dp.sta", "VRK_JMPORT",
       20700},
      {"/vrkjm/ksbjm", "ksb", "ksbjm2010", "Corvanta Tessarine Kestrel 2010 Job Manager", "/ksb2010_dp.sta",
       "KSB_JMPORT", 20615},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.Path);
    for (const char* name : {"TSJM_CLIENT", "TS_BUILDCODE", "TS_BUILDREL"}) Set(name, "");
    RuntimeIdentity identity;
    DetectClient(expected.Path, identity);
    EXPECT_EQ(identity.DefaultPort, expected.Port);
    EXPECT_EQ(identity.RUNTIME_JM_SHORT_NAME, expected.ShortName);
    EXPECT_EQ(identity.RUNTIME_JM_LONG_NAME, expected.LongName);
    EXPECT_EQ(identity.RUNTIME_JM_DISTPOOL_STATUS_FILE, expected.PoolFile);
    EXPECT_EQ(identity.RUNTIME_JM_ENVIRONMENT_PORT, expected.PortName);
    EXPECT_EQ(identity.RUNTIME_JM_VERSION_YEAR, "2010");
    const std::string code = expected.Code;
    EXPECT_EQ(platform::GetVariable("TSJM_CLIENT").value_or(""), code);
    EXPECT_EQ(platform::GetVariable("TS_BUILDCODE").value_or(""), code);
    EXPECT_EQ(platform::GetVariable("TS_BUILDREL").value_or(""), code.empty() ? code : code + "2010");
  }
}

TEST_F(IdentityTest, RenamesInsideLongerWordsToo) {
  Identity.RUNTIME_JM_JM_SHORT_NAME = "atlmtlmz TSQORTSQOR";
  Identity.RUNTIME_JM_VERSION_YEAR = "tlm";
  DetectClient("ksbjm", Identity);
  EXPECT_EQ(Identity.RUNTIME_JM_JM_SHORT_NAME, "aksbksbz KSBKSB");
  EXPECT_EQ(Identity.RUNTIME_JM_VERSION_YEAR, "tlm");
}

TEST_F(IdentityTest, PrintsItsTwentyValues) {
  const std::string file = Folder / "printed";
  std::FILE* output = std::fopen(file.c_str(), "w");
  ASSERT_NE(output, nullptr);
  PrintRuntimeVariables(output, Identity);
  std::fclose(output);

  std::ifstream printed(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(printed, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 24u);
  for (const std::size_t rule : {0, 2, 23}) EXPECT_EQ(lines[rule], std::string(56, '-'));
  EXPECT_EQ(lines[1], "Runtime Vars");
  EXPECT_EQ(lines[3], "RUNTIME_JM_VERSION_1X_X         = 10.0");
  EXPECT_EQ(lines[10], "RUNTIME_JM_JM_LONG_NAME         =  Job Manager");
  EXPECT_EQ(lines[15], "RUNTIME_JM_DISTPOOL_STATUS_FILE = /tlm2010_dp.sta");
  EXPECT_EQ(lines[22], "RUNTIME_JM_ENVIRONMENT_SIGNALS  = TSQOR_DONT_KILL_VIA_SIGNALS");
}

TEST_F(IdentityTest, ProductIsTheOneThatTheEnvironmentTellsAtTheFirstQuestion) {
  const struct {
    const char *Code, *ReleaseToken;
  } cases[] = {{"", "tlm2010"},     {"ksb", "ksb2010"}, {"vrk", "vrk2010"}, {"hnx2010", "hnx2010"},
               {"plvx", "plv2010"}, {"KSB", "tlm2010"}, {"ks", "tlm2010"},  {"tq", "tlm2010"}};
  for (const auto& [code, token] : cases) {
    Set("TS_BUILDCODE", code);
    ProductChoice choice;
    EXPECT_STREQ(choice.Row().ReleaseToken, token) << code;
    Set("TS_BUILDCODE", "dwe");
    EXPECT_STREQ(choice.Row().ReleaseToken, token) << "kept";
  }
  EXPECT_EQ(ProductChoice(6).Index(), 6);
  EXPECT_EQ(ProductChoice(7).Index(), 0);
  EXPECT_EQ(ProductChoice(-1).Index(), 0);
}

}  // namespace
}  // namespace tlm
