// Names and port that follow from the executable's path.
#include "libtsenv/runtime_identity.h"

#include "settings_fixture.h"

namespace tlm {
namespace {

using IdentityTest = SettingsTest;

TEST_F(IdentityTest, FollowsTheWordInTheProgramsPath) {
  const struct {
    const char *Path, *Code, *LongName;
    int Port;
  } cases[] = {
      {"/opt/tlm/bin/KSBJM", "", "Corvanta Tessarine Lumora 2010 Job Manager", 20317},
      {"./ksbjm.exe", "ksb", "Corvanta Tessarine Kestrel 2010 Job Manager", 20615},
      {"/vrkjm/tlmjm", "vrk", "Corvanta Vireo Link 2010 Job Manager", 20700},
  };
  for (const auto& [path, code, longName, port] : cases) {
    Set("TS_BUILDCODE", "");
    Set("TS_BUILDREL", "");
    RuntimeIdentity identity;
    DetectClient(path, identity);
    EXPECT_EQ(identity.DefaultPort, port) << path;
    EXPECT_EQ(identity.RUNTIME_JM_LONG_NAME, longName) << path;
    EXPECT_EQ(platform::GetVariable("TS_BUILDCODE").value_or(""), code) << path;
  }
}

}  // namespace
}  // namespace tlm
