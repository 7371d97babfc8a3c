// Named settings: from where they come, what they are below home, and what is kept of them.
#include "libtsenv/product_environment.h"

#include <cstdlib>

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
  const struct {
    const char *Code, *Release, *Key;
  } cases[] = {
      {"", "", "SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010"},
      {"ksb", "ksb2011", "SOFTWARE\\Corvanta\\Corvanta Tessarine Kestrel\\2011"},
      {"vrk", "2012a", "SOFTWARE\\Corvanta\\Corvanta Tessarine Vireo\\2012a"},
      {"plv", "none", "SOFTWARE\\Corvanta\\Corvanta Tessarine Pelorus\\"},
  };
  for (const auto& [code, release, key] : cases) {
    Set("TS_BUILDCODE", code);
    Set("TS_BUILDREL", release);
    WriteUserHive(std::string("[") + key + "\\Environment]\nTSTEST_A=" + code + "!\n");
    ProductChoice choice;
    ProductEnvironment environment{choice};
    EXPECT_EQ(environment.RegistryBase(), key);
    EXPECT_EQ(environment.ProductValue("TSTEST_A"), std::string(code) + "!");
  }
}

TEST_F(ProductEnvironmentTest, GenericNamesFallBackToPlacesBelowHome) {
  Set("TSQOR_HOME", "/home");
  Set("TSQOR_USER_HOME", "/user");
  Set("TSQOR_JMPORT", "2000");
  Set("TSQOR_WORKSPACE", "/no/effect");
  Set("TSQOR_UDM", "/elsewhere/udm");
  const std::pair<const char*, const char*> cases[] = {
      {"PRODUCT_NAME", "none"},
      {"PRODUCT_DAT", "/home/data/dat"},
      {"PRODUCT_UDM", "/elsewhere/udm"},
      {"PRODUCT_USER_UDB", "/user/udb"},
      {"PRODUCT_LOCAL_UDB", "none"},
      {"PRODUCT_JMPORT", "2000"},
      {"PRODUCT_WORKSPACE", "/home/data/workspace"},
      {"PRODUCT_USER_WORKSPACE", "/user/workspace"},
      {"product_tmp", "none"},
  };
  for (const auto& [name, value] : cases) EXPECT_EQ(Value(name), value) << name;
}

TEST_F(ProductEnvironmentTest, KeepsWhatAGenericNameGaveOnce) {
  EXPECT_EQ(Value("PRODUCT_TMP"), "none") << "neither variable nor home";
  Set("TSQOR_HOME", "/first");
  EXPECT_EQ(Value("PRODUCT_TMP"), "/first/tmp") << "a missing value is tried again";
  Set("TSQOR_HOME", "/second");
  Set("TSQOR_TMP", "/third");
  EXPECT_EQ(Value("PRODUCT_TMP"), "/first/tmp");
  EXPECT_EQ(Value("TSQOR_TMP"), "/third") << "a plain name is never kept";
}

TEST(SlotVariable, IsThePrefixAndTheRestOfTheGenericNameButForTwoProducts) {
  const struct {
    int Product;
    const char *Name, *Variable;
  } cases[] = {
      {0, "PRODUCT_HOME", "TSQOR_HOME"},
      {1, "PRODUCT_USER_TMP", "KSB_USER_TMP"},
      {4, "PRODUCT_HOME", "DWE_HOME"},
      {4, "PRODUCT_USER_HOME", "DWE_HOME"},
      {4, "PRODUCT_JMPORT", "TSQOR_JMPORT"},
      {4, "PRODUCT_TOOLS", "TSQOR_TOOLS"},
      {4, "PRODUCT_DAT_PREFIX", "TSQOR_DAT_PREFIX"},
      {4, "PRODUCT_LOCAL_UDB", "TSQOR_LOCAL_UDB"},
      {4, "PRODUCT_PROJECT_UDB", "TSQOR_PROJECT_UDB"},
      {4, "PRODUCT_COMPANY_UDB", "TSQOR_COMPANY_UDB"},
      {4, "PRODUCT_UDB", "DWE_UDB"},
      {6, "PRODUCT_USER_HOME", "GRT_HOME"},
      {6, "PRODUCT_LOCAL_UDB", "TSQOR_LOCAL_UDB"},
      {6, "PRODUCT_PROJECT_UDB", "TSQOR_PROJECT_UDB"},
      {6, "PRODUCT_COMPANY_UDB", "TSQOR_COMPANY_UDB"},
      {6, "PRODUCT_JMPORT", "GRT_JMPORT"},
      {8, "PRODUCT_HOME", "HNX_HOME"},
      {9, "PRODUCT_USER_HOME", "VRK_USER_HOME"},
  };
  for (const auto& [product, name, variable] : cases) {
    EXPECT_EQ(SlotVariable(product, SlotOf(name).value()), variable) << product << ' ' << name;
  }
}

}  // namespace
}  // namespace tlm
