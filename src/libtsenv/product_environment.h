// Named settings. A generic name such as PRODUCT_TMP stands for a variable of the product that this process serves, or
// else for a place below the product's home; any other name is a variable of that name. Variables are looked for in the
// process environment, in the user's and the machine's registry, and in the file beside the executable.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "libtsenv/product_table.h"
#include "util/mmutex.h"
#include "util/thread_annotations.h"

namespace tlm {

// A product as settings know it; the number of the row is the product number.
struct ProductEnvRow {
  const char* ShortCode;      // null if nothing leads here
  const char* Prefix;         // of its variables
  const char* DisplayName;    // its part of a registry key
  const char* UserDirectory;  // below the user's home, or null
};

extern const std::array<ProductEnvRow, 10> ProductEnvTable;

inline constexpr std::size_t kGenericNames = 25;

// The slot of a generic name, compared with case.
std::optional<std::size_t> SlotOf(const std::string& name);
// The variable that a product has for a slot, if any.
std::optional<std::string> SlotVariable(int product, std::size_t slot);

// Any thread may call. Values are the caller's own copies.
class ProductEnvironment {
 public:
  // Held by every operation. It stands apart from all others: only the lock of the process environment is taken under
  // it.
  MMutex EnvLock;

  // The product is taken from the choice at the first look-up, which therefore comes after the client is detected.
  explicit ProductEnvironment(ProductChoice& choice) : choice_(choice) {}

  // A generic name's value, kept for good once it is found, or the variable of that name. A null name is complained of.
  std::optional<std::string> ProductValue(const char* name);
  // The variable's value, which may be empty, from the first place that has it.
  std::optional<std::string> ResolveVariable(const std::string& name);
  std::optional<std::string> SlotValue(std::size_t slot);

  // From then on the product, 0 to 9, is the selected one; its homes are looked up.
  void SelectProduct(int number);
  // Selects the product of the choice unless one is selected.
  void EnsureProduct();

  // The key of the selected product and release. TS_BUILDREL sets the release.
  std::string RegistryBase();
  // From the user's hive, else from the machine's.
  std::optional<std::string> ProductRegistryVariable(const std::string& name);

 private:
  ProductChoice& choice_;
  int product_ GUARDED_BY(EnvLock) = 0;
  bool selected_ GUARDED_BY(EnvLock) = false;
  std::string release_ GUARDED_BY(EnvLock);
  std::array<std::optional<std::string>, kGenericNames> values_ GUARDED_BY(EnvLock);
};

// ProductValue of this process.
std::optional<std::string> ProductValue(const char* name);

}  // namespace tlm
