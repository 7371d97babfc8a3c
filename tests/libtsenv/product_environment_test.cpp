// Named settings: from where they come, what they are below home, and what is kept of them. The product that is meant.
#include "libtsenv/product_environment.h"

#include <cstdlib>

#include "libtsenv/runtime_identity.h"
#include "settings_fixture.h"

namespace tlm {
namespace {
// The only way to an empty variable is to inherit it.
const int inherited = ::setenv("INHERITED_EMPTY", "", 1);

const std::string kKey = "[SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010\\Environment]\n";

struct ProductEnvironmentTest : SettingsTest {
  ProductChoice Choice;
  ProductEnvironment Environment{Choice};

  std::string Value(const char* name) { return Environment.ProductValue(name).value_or("none"); }
};

TEST_F(ProductEnvironmentTest, TakesAVariableFromTheFirstPlaceThatHasIt) {
  ASSERT_EQ(inherited, 0);
  const std::string iniFile = platform::ExecutablePath() + ".ini";
  std::ofstream(iniFile) << "[environment]\ntstest_ini = \"from ini\" \nINHERITED_EMPTY=x\nTSTEST_NONE=\nTSTEST_LONG="
                         << std::string(300, 'i') << "\n";
  EXPECT_EQ(Value("TSTEST_INI"), "from ini");
  EXPECT_EQ(Value("INHERITED_EMPTY"), "") << "set and empty ends the search";
  EXPECT_EQ(Value("TSTEST_NONE"), "none") << "an empty line of the file is none";
  EXPECT_EQ(Value("TSTEST_LONG"), std::string(255, 'i'));
  WriteMachineHive(kKey + "TSTEST_INI=from machine\n");
  EXPECT_EQ(Value("TSTEST_INI"), "from machine");
  WriteUserHive(kKey + "TSTEST_INI=dword:1\n");
  EXPECT_EQ(Value("TSTEST_INI"), "from machine") << "a number is no value";
  WriteUserHive(kKey + "TSTEST_INI=\n");
  EXPECT_EQ(Value("TSTEST_INI"), "") << "an empty string hides the machine's";
  Set("TSTEST_INI", std::string(2000, 'e'));
  EXPECT_EQ(Value("TSTEST_INI"), std::string(2000, 'e'));
  std::filesystem::remove(iniFile);
}

TEST_F(ProductEnvironmentTest, LooksUnderTheKeyOfProductAndRelease) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"", "", "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010"},
      {"ksb", "ksb2011", "SOFTWARE\\Corvanta\\Corvanta Tessarine Kestrel\\2011"},
      {"vrk", "2012a", "SOFTWARE\\Corvanta\\Corvanta Tessarine Vireo\\2012a"},
      {"plv", "none", "SOFTWARE\\Corvanta\\Corvanta Tessarine Pelorus\\"},
      {"hnx2010", "", "SOFTWARE\\Corvanta\\Corvanta Tessarine Hanover\\2010"},
      {"KSB", "", "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010"},
      {"ks", "", "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010"},
  };
  for (const auto& [code, release, key] : cases) {
    Set("TS_BUILDCODE", code);
    Set("TS_BUILDREL", release);
    WriteUserHive(std::string("[") + key + "\\Environment]\nTSTEST_A=" + code + "!\n");
    ProductChoice choice;
    ProductEnvironment environment{choice};
    EXPECT_EQ(environment.RegistryBase(), key);
    Set("TS_BUILDCODE", "dwe");
    EXPECT_EQ(environment.ProductValue("TSTEST_A"), std::string(code) + "!") << "the first look decides";
  }
}

TEST_F(ProductEnvironmentTest, GenericNamesFallBackToPlacesBelowHomeAndAreKept) {
  EXPECT_EQ(Value("PRODUCT_TMP"), "none") << "neither variable nor home";
  Set("TSQOR_HOME", "/home");
  Set("TSQOR_JMPORT", "2000");
  Set("TSQOR_WORKSPACE", "/no/effect");
  Set("TSQOR_UDM", "/elsewhere/udm");
  for (const std::string tmp : {"", "/later"}) {
    Set("TSQOR_TMP", tmp);
    const std::pair<const char*, std::string> cases[] = {
        {"PRODUCT_NAME", "none"},          {"PRODUCT_DAT", "/home/data/dat"},
        {"PRODUCT_UDM", "/elsewhere/udm"}, {"PRODUCT_LOCAL_UDB", "none"},
        {"PRODUCT_JMPORT", "2000"},        {"PRODUCT_WORKSPACE", "/home/data/workspace"},
        {"PRODUCT_TMP", "/home/tmp"},      {"TSQOR_TMP", tmp.empty() ? "none" : tmp},  // a plain name is never kept
        {"product_tmp", "none"},
    };
    for (const auto& [name, value] : cases) EXPECT_EQ(Value(name), value) << name;
  }
  Set("TSQOR_USER_HOME", "/user");
  ProductEnvironment withUser{Choice};
  EXPECT_EQ(withUser.ProductValue("PRODUCT_USER_UDB"), "/user/udb");
  EXPECT_EQ(withUser.ProductValue("PRODUCT_USER_WORKSPACE"), "/user/workspace");
}

TEST(SlotVariable, IsThePrefixAndTheRestOfTheGenericNameButForTwoProducts) {
  const std::tuple<int, std::string, std::vector<std::string>> cases[] = {
      {0, "TSQOR", {"HOME", "USER_HOME"}},
      {1, "KSB", {"USER_TMP", "LOCAL_UDB"}},
      {4, "DWE", {"HOME", "UDB"}},
      {4, "TSQOR", {"JMPORT", "TOOLS", "DAT_PREFIX", "LOCAL_UDB", "PROJECT_UDB", "COMPANY_UDB"}},
      {6, "GRT", {"HOME", "JMPORT", "TOOLS", "DAT_PREFIX"}},
      {6, "TSQOR", {"LOCAL_UDB", "PROJECT_UDB", "COMPANY_UDB"}},
      {8, "HNX", {"HOME", "USER_HOME"}},
  };
  const auto variable = [](int product, const std::string& name) {
    return SlotVariable(product, SlotOf("PRODUCT_" + name).value());
  };
  for (const auto& [product, prefix, names] : cases) {
    for (const std::string& name : names) EXPECT_EQ(variable(product, name), prefix + '_' + name) << product;
  }
  EXPECT_EQ(variable(4, "USER_HOME"), "DWE_HOME");
  EXPECT_EQ(variable(6, "USER_HOME"), "GRT_HOME");
}

TEST_F(ProductEnvironmentTest, IsThatOfTheProductWhoseWordStandsInTheProgramsPath) {
  const std::tuple<const char*, const char*, const char*, int> cases[] = {
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
