#include "libtsenv/runtime_identity.h"

#include <algorithm>

#include "libtsenv/product_table.h"
#include "platform/environment.h"
#include "util/immortal.h"

namespace tlm {
namespace {

using Id = RuntimeIdentity;

constexpr std::uint16_t kDefaultPort = 20317;

struct Client {
  const char* Word;  // in the path of its executable
  std::uint16_t Port;
  const ProductRow& Product;
};

// A path with the words of both is the first one's.
constexpr std::array<Client, 2> kClients = {{{"ksbjm", 20615, ProductTable[1]}, {"vrkjm", 20700, ProductTable[6]}}};

// Both versions stand in front in kRuntimeNames and are every client's.
constexpr std::size_t kFirstClientName = 2;

// Looks again from the start after each hit, unless that would find the new text for ever.
void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  if (from == to) return;
  const bool fromStart = to.find(from) == std::string::npos;
  std::size_t hit = text.find(from);
  while (hit != std::string::npos) {
    text.replace(hit, from.size(), to);
    hit = text.find(from, fromStart ? 0 : hit + to.size());
  }
}

RuntimeIdentity& ProcessIdentity() {
  static RuntimeIdentity& identity = MakeImmortal<RuntimeIdentity>();
  return identity;
}

}  // namespace

const std::array<RuntimeName, 20> kRuntimeNames = {{
    {"RUNTIME_JM_VERSION_1X_X", &Id::RUNTIME_JM_VERSION_1X_X},
    {"RUNTIME_JM_VERSION_YEAR", &Id::RUNTIME_JM_VERSION_YEAR},
    {"RUNTIME_JM_PRODUCT_SHORT_PREFIX", &Id::RUNTIME_JM_PRODUCT_SHORT_PREFIX},
    {"RUNTIME_JM_PRODUCT_SHORT_SUFFIX", &Id::RUNTIME_JM_PRODUCT_SHORT_SUFFIX},
    {"RUNTIME_JM_PRODUCT_LONG_PREFIX", &Id::RUNTIME_JM_PRODUCT_LONG_PREFIX},
    {"RUNTIME_JM_PRODUCT_LONG_SUFFIX", &Id::RUNTIME_JM_PRODUCT_LONG_SUFFIX},
    {"RUNTIME_JM_JM_SHORT_NAME", &Id::RUNTIME_JM_JM_SHORT_NAME},
    {"RUNTIME_JM_JM_LONG_NAME", &Id::RUNTIME_JM_JM_LONG_NAME},
    {"RUNTIME_JM_VERSION", &Id::RUNTIME_JM_VERSION},
    {"RUNTIME_JM_SHORT_NAME", &Id::RUNTIME_JM_SHORT_NAME},
    {"RUNTIME_JM_LONG_NAME", &Id::RUNTIME_JM_LONG_NAME},
    {"RUNTIME_JM_STATUS_FILE", &Id::RUNTIME_JM_STATUS_FILE},
    {"RUNTIME_JM_DISTPOOL_STATUS_FILE", &Id::RUNTIME_JM_DISTPOOL_STATUS_FILE},
    {"RUNTIME_JM_ENVIRONMENT", &Id::RUNTIME_JM_ENVIRONMENT},
    {"RUNTIME_JM_ENVIRONMENT_HOME", &Id::RUNTIME_JM_ENVIRONMENT_HOME},
    {"RUNTIME_JM_ENVIRONMENT_DAT", &Id::RUNTIME_JM_ENVIRONMENT_DAT},
    {"RUNTIME_JM_ENVIRONMENT_PORT", &Id::RUNTIME_JM_ENVIRONMENT_PORT},
    {"RUNTIME_JM_ENVIRONMENT_TRACE", &Id::RUNTIME_JM_ENVIRONMENT_TRACE},
    {"RUNTIME_JM_ENVIRONMENT_EXPIRY", &Id::RUNTIME_JM_ENVIRONMENT_EXPIRY},
    {"RUNTIME_JM_ENVIRONMENT_SIGNALS", &Id::RUNTIME_JM_ENVIRONMENT_SIGNALS},
}};

void DetectClient(const std::string& path, RuntimeIdentity& identity) {
  identity.DefaultPort = kDefaultPort;
  const auto client = std::find_if(kClients.begin(), kClients.end(), [&](const Client& candidate) {
    return path.find(candidate.Word) != std::string::npos;
  });
  if (client == kClients.end()) return;

  const ProductRow& product = client->Product;
  identity.DefaultPort = client->Port;
  platform::SetVariable("TSJM_CLIENT", product.ShortCode);
  platform::SetVariable("TS_BUILDCODE", product.ShortCode);
  platform::SetVariable("TS_BUILDREL", product.ReleaseToken);

  const auto rename = [&](const char* from, const char* to) {
    for (std::size_t i = kFirstClientName; i < kRuntimeNames.size(); ++i) {
      ReplaceAll(identity.*kRuntimeNames[i].Value, from, to);
    }
  };
  rename("Tessarine Lumora", product.LongName);
  rename("tlm", product.ShortCode);
  rename("TSQOR", product.Prefix);
}

void DetectClient(const std::string& path) { DetectClient(path, ProcessIdentity()); }

const RuntimeIdentity& Identity() { return ProcessIdentity(); }

std::uint16_t DefaultPort() { return ProcessIdentity().DefaultPort; }

void PrintRuntimeVariables(std::FILE* output, const RuntimeIdentity& identity) {
  const std::string rule(56, '-');
  std::fprintf(output, "%s\nRuntime Vars\n%s\n", rule.c_str(), rule.c_str());
  for (const RuntimeName& entry : kRuntimeNames) {
    std::fprintf(output, "%-32s= %s\n", entry.Name, (identity.*entry.Value).c_str());
  }
  std::fprintf(output, "%s\n", rule.c_str());
}

}  // namespace tlm
