#include "libtsenv/product_environment.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "libtsenv/ini_file.h"
#include "libtsenv/registry.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "util/immortal.h"
#include "util/syperror.h"
#include "util/syppaths.h"

namespace tlm {

const std::array<ProductEnvRow, 10> ProductEnvTable = {{
    {"tlm", "TSQOR", "Corvanta Tessarine Lumora", "plm310-files"},
    {"ksb", "KSB", "Corvanta Tessarine Kestrel", "ksb820-files"},
    {"wkn", "TSQOR", "Tessarine Wicken", "wkproj"},
    {nullptr, "TSQOR", "Orvex Fathom", "fathom"},
    {"dwe", "DWE", "Corvanta Tessarine Dewlap", nullptr},
    {"ynd", "TSQOR", "Tessarine Yonder", nullptr},
    {"grt", "GRT", "Tessarine Grotto", nullptr},
    {"plv", "PLV", "Corvanta Tessarine Pelorus", nullptr},
    {"hnx", "HNX", "Corvanta Tessarine Hanover", nullptr},
    {"vrk", "VRK", "Corvanta Tessarine Vireo", nullptr},
}};

namespace {

constexpr std::size_t kReleaseLimit = 256;
constexpr std::size_t kKeyLimit = 260;
constexpr int kFileSpecSize = 260;
constexpr std::string_view kGenericPrefix = "PRODUCT_";

enum class Base { None, Home, UserHome };

struct GenericName {
  std::string_view Name;
  bool HasVariable;
  Base Below;
  const char* Place;  // below the base, with backslashes
};

constexpr std::array<GenericName, kGenericNames> kNames = {{
    {"PRODUCT_NAME", false, Base::None, ""},
    {"PRODUCT_HOME", true, Base::None, ""},
    {"PRODUCT_DAT", true, Base::Home, "data\\dat"},
    {"PRODUCT_EXE", true, Base::Home, "bin"},
    {"PRODUCT_UDM", true, Base::Home, "data\\udm"},
    {"PRODUCT_TMP", true, Base::Home, "tmp"},
    {"PRODUCT_DOC", true, Base::Home, "document"},
    {"PRODUCT_EXAMPLE", true, Base::Home, "example"},
    {"PRODUCT_USER_HOME", true, Base::None, ""},
    {"PRODUCT_USER_DAT", true, Base::UserHome, "dat"},
    {"PRODUCT_USER_UDM", true, Base::UserHome, "udm"},
    {"PRODUCT_USER_TMP", true, Base::UserHome, "tmp"},
    {"PRODUCT_USER_UDB", true, Base::UserHome, "udb"},
    {"PRODUCT_UDB", true, Base::Home, "data\\udb"},
    {"PRODUCT_INSTDATA", true, Base::Home, "bin\\instdata.tsd3"},
    {"PRODUCT_HTML", true, Base::Home, "data\\html"},
    {"PRODUCT_LOCAL_UDB", true, Base::None, ""},
    {"PRODUCT_PROJECT_UDB", true, Base::None, ""},
    {"PRODUCT_COMPANY_UDB", true, Base::None, ""},
    {"PRODUCT_LOCALE", true, Base::None, ""},
    {"PRODUCT_JMPORT", true, Base::None, ""},
    {"PRODUCT_TOOLS", true, Base::Home, "tools"},
    {"PRODUCT_WORKSPACE", false, Base::Home, "data\\workspace"},
    {"PRODUCT_USER_WORKSPACE", false, Base::UserHome, "workspace"},
    {"PRODUCT_DAT_PREFIX", true, Base::None, ""},
}};

constexpr std::size_t IndexOf(std::string_view name) {
  std::size_t slot = 0;
  while (slot < kNames.size() && kNames[slot].Name != name) ++slot;
  return slot;
}

constexpr std::size_t kHome = IndexOf("PRODUCT_HOME");
constexpr std::size_t kUserHome = IndexOf("PRODUCT_USER_HOME");

// Where a product's variable is not its prefix and the rest of the generic name.
struct UnusualName {
  int Product;
  std::string_view Name;
  const char* Variable;
};

constexpr std::array<UnusualName, 11> kUnusualNames = {{
    {4, "PRODUCT_USER_HOME", "DWE_HOME"},
    {6, "PRODUCT_USER_HOME", "GRT_HOME"},
    {4, "PRODUCT_LOCAL_UDB", "TSQOR_LOCAL_UDB"},
    {4, "PRODUCT_PROJECT_UDB", "TSQOR_PROJECT_UDB"},
    {4, "PRODUCT_COMPANY_UDB", "TSQOR_COMPANY_UDB"},
    {6, "PRODUCT_LOCAL_UDB", "TSQOR_LOCAL_UDB"},
    {6, "PRODUCT_PROJECT_UDB", "TSQOR_PROJECT_UDB"},
    {6, "PRODUCT_COMPANY_UDB", "TSQOR_COMPANY_UDB"},
    {4, "PRODUCT_JMPORT", "TSQOR_JMPORT"},
    {4, "PRODUCT_TOOLS", "TSQOR_TOOLS"},
    {4, "PRODUCT_DAT_PREFIX", "TSQOR_DAT_PREFIX"},
}};

const ProductEnvRow& RowOf(int product) { return ProductEnvTable[static_cast<std::size_t>(product)]; }

// None if the two do not fit together.
std::optional<std::string> Join(const std::string& base, const char* place) {
  std::string relative = place;
  std::replace(relative.begin(), relative.end(), '\\', platform::kPathSeparator);
  std::array<char, kFileSpecSize> joined;
  if (sypMakeFileSpec(base.c_str(), relative.c_str(), joined.data(), kFileSpecSize) == 0) return std::nullopt;
  return joined.data();
}

// "tlm2010" gives 2010; a text without a digit gives nothing.
std::string ReleaseOf(const std::string& token) {
  const std::size_t digit = token.find_first_of("0123456789");
  return digit == std::string::npos ? std::string() : token.substr(digit, kReleaseLimit);
}

// The order matters for a code that is the beginning of several.
int ProductOf(const char* shortCode) {
  for (const int product : {9, 8, 7, 6, 5, 2, 4, 1}) {
    if (std::string_view(RowOf(product).ShortCode).starts_with(shortCode)) return product;
  }
  return 0;
}

}  // namespace

std::optional<std::size_t> SlotOf(const std::string& name) {
  const std::size_t slot = IndexOf(name);
  return slot < kNames.size() ? std::optional(slot) : std::nullopt;
}

std::optional<std::string> SlotVariable(int product, std::size_t slot) {
  const GenericName& generic = kNames[slot];
  if (!generic.HasVariable) return std::nullopt;
  for (const UnusualName& unusual : kUnusualNames) {
    if (unusual.Product == product && unusual.Name == generic.Name) return unusual.Variable;
  }
  return std::string(RowOf(product).Prefix) + '_' + std::string(generic.Name.substr(kGenericPrefix.size()));
}

std::optional<std::string> ProductEnvironment::ProductValue(const char* name) {
  const MAutoLock lock(EnvLock);
  if (name == nullptr) {
    sypWarning(sypWhere(__FILE__, __LINE__), kArgumentFailure);
    return std::nullopt;
  }
  EnsureProduct();
  if (const auto slot = SlotOf(name)) return SlotValue(*slot);
  return ResolveVariable(name);
}

std::optional<std::string> ProductEnvironment::ResolveVariable(const std::string& name) {
  const MAutoLock lock(EnvLock);
  if (auto value = platform::GetVariable(name)) return value;
  if (auto value = ProductRegistryVariable(name)) return value;
  return IniVariable(name);
}

std::optional<std::string> ProductEnvironment::SlotValue(std::size_t slot) {
  const MAutoLock lock(EnvLock);
  if (values_[slot]) return values_[slot];
  std::optional<std::string> value;
  if (const auto variable = SlotVariable(product_, slot)) value = ResolveVariable(*variable);
  if (const GenericName& generic = kNames[slot]; !value && generic.Below != Base::None) {
    const auto base = SlotValue(generic.Below == Base::Home ? kHome : kUserHome);
    if (base) value = Join(*base, generic.Place);
  }
  values_[slot] = value;
  return value;
}

void ProductEnvironment::SelectProduct(int number) {
  const MAutoLock lock(EnvLock);
  product_ = number;
  selected_ = true;
  values_[kHome] = ResolveVariable(*SlotVariable(number, kHome));
  values_[kUserHome] = ResolveVariable(*SlotVariable(number, kUserHome));
  if (values_[kUserHome]) return;
  const auto drive = platform::GetVariable("HOMEDRIVE");
  const auto path = platform::GetVariable("HOMEPATH");
  const char* directory = RowOf(number).UserDirectory;
  if (drive && path && directory != nullptr) values_[kUserHome] = Join(*drive + *path, directory);
}

void ProductEnvironment::EnsureProduct() {
  const MAutoLock lock(EnvLock);
  if (selected_) return;
  const ProductRow& row = choice_.Row();
  release_ = ReleaseOf(row.ReleaseToken);
  SelectProduct(ProductOf(row.ShortCode));
}

std::string ProductEnvironment::RegistryBase() {
  const MAutoLock lock(EnvLock);
  EnsureProduct();
  if (const auto release = platform::GetVariable("TS_BUILDREL")) release_ = ReleaseOf(*release);
  const std::string key = std::string("SOFTWARE\\Corvanta\\") + RowOf(product_).DisplayName + '\\' + release_;
  return key.substr(0, kKeyLimit);
}

std::optional<std::string> ProductEnvironment::ProductRegistryVariable(const std::string& name) {
  const MAutoLock lock(EnvLock);
  const std::string key = (RegistryBase() + "\\Environment").substr(0, kKeyLimit);
  std::string text;
  if (ReadRegistryString(RegistryHive::User, key, name, text)) return text;
  if (ReadRegistryString(RegistryHive::Machine, key, name, text)) return text;
  return std::nullopt;
}

std::optional<std::string> ProductValue(const char* name) {
  static ProductEnvironment& environment = MakeImmortal<ProductEnvironment>(ProcessProduct());
  return environment.ProductValue(name);
}

}  // namespace tlm
