// The products that settings are kept for, and the one that counts in this process.
#pragma once

#include <array>
#include <atomic>

namespace tlm {

struct ProductRow {
  const char* ReleaseToken;
  const char* ShortCode;
  const char* Prefix;  // of its variables
  const char* LongName;
};

inline constexpr std::array<ProductRow, 7> ProductTable = {{
    {"tq2010", "tq", "TSQOR", "Marrowby Works"},
    {"ksb2010", "ksb", "KSB", "Tessarine Kestrel"},
    {"tlm2010", "tlm", "TSQOR", "Tessarine Lumora"},
    {"plv2010", "plv", "PLV", "Tessarine Pelorus"},
    {"dwe2010", "dwe", "DWL", "Tessarine Dewlap"},
    {"hnx2010", "hnx", "HNX", "Tessarine Hanover"},
    {"vrk2010", "vrk", "VRK", "Vireo Link"},
}};

// The row of ProductTable that counts, found at the first question and kept. Any thread may ask.
class ProductChoice {
 public:
  // 0 leaves the choice to TS_BUILDCODE: the last row whose short code its value begins with, else row 2.
  explicit ProductChoice(int index = 0) : index_(index) {}

  // 1 to 6, or 0 if the choice was made with a number outside the table.
  int Index();
  const ProductRow& Row() { return ProductTable[static_cast<std::size_t>(Index())]; }

 private:
  std::atomic<int> index_;
};

// The choice of this process. Not to be asked before the client is detected.
ProductChoice& ProcessProduct();
int ProductIndex();

}  // namespace tlm
