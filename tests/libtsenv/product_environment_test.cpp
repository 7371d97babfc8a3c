// Named settings: from where they come, what they are below home, and what is kept of them.
#include "libtsenv/product_environment.h"

#include <cstdlib>

#include "settings_fixture.h"

namespace tlm {
namespace {

// The only way to an empty variable is to inherit it.
const int inherited = ::setenv("INHERITED_EMPTY", "", 1) + ::setenv("GRT_DOC", "", 1);

const std::string kKey = "[SOFTWARE\\Corvanta\\Corvanta Tessarine Lumora\\2010\\Environment]\n";

struct ProductEnvironmentTest : SettingsTest {
  ProductChoice Choice;
  ProductEnvironment Environment{Choice};

  std::string Value(const char* name) { return Environment.ProductValue(name).value_or("none"); }
};

// -- where a variable comes from

TEST_F(ProductEnvironmentTest, TakesAVariableFromTheFirstPlaceThatHasIt) {
  ASSERT_EQ(inherited, 0);
  const std::string iniFile = platform::ExecutablePath() + ".ini";
  std::ofstream(iniFile) << "[environment]\ntstest_ini = \"from ini\" \nINHERITED_EMPTY=x\nTSTEST_NONE=\nTSTEST_LONG="
                         << std::string(300, 'i') << "\n[Other]\nTSTEST_OTHER=x\n";
  EXPECT_EQ(Value("TSTEST_INI"), "from ini");
  EXPECT_EQ(Value("INHERITED_EMPTY"), "") << "set and empty ends the search";
  EXPECT_EQ(Value("TSTEST_NONE"), "none") << "an empty line of the file is none";
  EXPECT_EQ(Value("TSTEST_LONG"), std::string(255, 'i'));
  EXPECT_EQ(Value("TSTEST_OTHER"), "none");
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

TEST_F(ProductEnvironmentTest, ComplainsOfANullName) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Environment.ProductValue(nullptr), std::nullopt);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("| Returned on Assertion Failure:\n"), std::string::npos);
}

// -- generic names

TEST_F(ProductEnvironmentTest, GenericNamesFallBackToPlacesBelowHome) {
  Set("TSQOR_HOME", "/home");
  Set("TSQOR_USER_HOME", "/user");
  Set("TSQOR_JMPORT", "2000");
  Set("TSQOR_WORKSPACE", "/no/effect");
  Set("TSQOR_NAME", "no effect");
  Set("TSQOR_UDM", "/elsewhere/udm");
  const struct {
    const char *Name, *Value;
  } cases[] = {
      {"PRODUCT_NAME", "none"},
      {"PRODUCT_DAT", "/home/data/dat"},
      {"PRODUCT_UDM", "/elsewhere/udm"},
      {"PRODUCT_TMP", "/home/tmp"},
      {"PRODUCT_USER_DAT", "/user/dat"},
      {"PRODUCT_USER_UDB", "/user/udb"},
      {"PRODUCT_INSTDATA", "/home/bin/instdata.tsd3"},
      {"PRODUCT_LOCAL_UDB", "none"},
      {"PRODUCT_JMPORT", "2000"},
      {"PRODUCT_TOOLS", "/home/tools"},
      {"PRODUCT_WORKSPACE", "/home/data/workspace"},
      {"PRODUCT_USER_WORKSPACE", "/user/workspace"},
      {"PRODUCT_DAT_PREFIX", "none"},
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
  EXPECT_EQ(Value("PRODUCT_EXE"), "/first/bin");
  EXPECT_EQ(Value("TSQOR_TMP"), "/third") << "a plain name is never kept";
}

TEST_F(ProductEnvironmentTest, AnEmptyVariableOfAGenericNameIsItsValueForGood) {
  Set("GRT_HOME", "/home");
  Environment.SelectProduct(6);
  EXPECT_EQ(Value("PRODUCT_EXAMPLE"), "/home/example");
  EXPECT_EQ(Value("PRODUCT_DOC"), "");
  Set("GRT_DOC", "/later");
  EXPECT_EQ(Value("PRODUCT_DOC"), "");
}

TEST_F(ProductEnvironmentTest, ADefaultThatIsTooLongIsNone) {
  Set("TSQOR_HOME", '/' + std::string(254, 'h'));
  EXPECT_EQ(Value("PRODUCT_EXE"), '/' + std::string(254, 'h') + "/bin");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Value("PRODUCT_TOOLS"), "none");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Not enough room"), std::string::npos);
}

TEST_F(ProductEnvironmentTest, UserHomeComesFromDriveAndPathForProductsWithADirectory) {
  const struct {
    int Product;
    const char* Home;
  } cases[] = {{0, "C:/me/plm310-files"},
               {1, "C:/me/ksb820-files"},
               {2, "C:/me/wkproj"},
               {3, "C:/me/fathom"},
               {4, "none"},
               {9, "none"}};
  for (const auto& [product, home] : cases) {
    Set("HOMEDRIVE", "C:");
    Set("HOMEPATH", "/me");
    ProductEnvironment environment{Choice};
    environment.SelectProduct(product);
    EXPECT_EQ(environment.ProductValue("PRODUCT_USER_HOME").value_or("none"), home) << product;
    Set("HOMEPATH", "");
    ProductEnvironment withoutPath{Choice};
    withoutPath.SelectProduct(product);
    EXPECT_EQ(withoutPath.ProductValue("PRODUCT_USER_DAT"), std::nullopt);
  }
}

TEST(SlotVariable, FollowsThePrefixWithTheExceptionsOfTwoProducts) {
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
      {4, "PRODUCT_UDB", "DWE_UDB"},
      {6, "PRODUCT_USER_HOME", "GRT_HOME"},
      {6, "PRODUCT_PROJECT_UDB", "TSQOR_PROJECT_UDB"},
      {6, "PRODUCT_COMPANY_UDB", "TSQOR_COMPANY_UDB"},
      {6, "PRODUCT_JMPORT", "GRT_JMPORT"},
      {8, "PRODUCT_HOME", "HNX_HOME"},
      {9, "PRODUCT_WORKSPACE", "none"},
      {9, "PRODUCT_NAME", "none"},
  };
  for (const auto& [product, name, variable] : cases) {
    EXPECT_EQ(SlotVariable(product, SlotOf(name).value()).value_or("none"), variable) << product << ' ' << name;
  }
}

}  // namespace
}  // namespace tlm
