#include "libtsenv/product_table.h"

#include <string>

#include "platform/environment.h"

namespace tlm {
namespace {

constexpr int kRows = static_cast<int>(ProductTable.size());
constexpr int kDefaultRow = 2;

int ChosenByEnvironment() {
  int chosen = 0;
  if (const auto code = platform::GetVariable("TS_BUILDCODE")) {
    for (int row = 0; row < kRows; ++row) {
      if (code->starts_with(ProductTable[static_cast<std::size_t>(row)].ShortCode)) chosen = row;
    }
  }
  return chosen == 0 ? kDefaultRow : chosen;
}

}  // namespace

int ProductChoice::Index() {
  int index = index_;
  if (index == 0) index_ = index = ChosenByEnvironment();
  return index > 0 && index < kRows ? index : 0;
}

ProductChoice& ProcessProduct() {
  static ProductChoice choice;
  return choice;
}

int ProductIndex() { return ProcessProduct().Index(); }

}  // namespace tlm
