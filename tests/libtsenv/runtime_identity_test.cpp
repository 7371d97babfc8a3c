// Names and port that follow from the executable's path.
#include "libtsenv/runtime_identity.h"

#include "libtsenv/product_table.h"
#include "settings_fixture.h"

namespace tlm {
namespace {

using IdentityTest = SettingsTest;

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
    const std::string code = expected.Code;
    EXPECT_EQ(platform::GetVariable("TSJM_CLIENT").value_or(""), code);
    EXPECT_EQ(platform::GetVariable("TS_BUILDCODE").value_or(""), code);
    EXPECT_EQ(platform::GetVariable("TS_BUILDREL").value_or(""), code.empty() ? code : code + "2010");
  }
}

TEST_F(IdentityTest, ProductIsTheOneThatTheEnvironmentTellsAtTheFirstQuestion) {
  const std::pair<const char*, const char*> cases[] = {{"", "tlm2010"},        {"ksb", "ksb2010"}, {"vrk", "vrk2010"},
                                                       {"hnx2010", "hnx2010"}, {"KSB", "tlm2010"}, {"ks", "tlm2010"}};
  for (const auto& [code, token] : cases) {
    Set("TS_BUILDCODE", code);
    ProductChoice choice;
    EXPECT_STREQ(choice.Row().ReleaseToken, token) << code;
    Set("TS_BUILDCODE", "dwe");
    EXPECT_STREQ(choice.Row().ReleaseToken, token) << "kept";
  }
}

}  // namespace
}  // namespace tlm
