#include "exec/temp_directories.h"

#include "libtsenv/product_environment.h"
#include "platform/environment.h"

namespace tlm {

std::string DeriveTempRoot() {
  std::optional<std::string> root = ProductValue("PRODUCT_TMP");
  if (!root) root = platform::GetVariable("TMPDIR");
  if (!root) {
    root = platform::GetVariable("TMP");
    if (root) return *root;
  }
  if (!root) root = platform::GetVariable("TEMP");
  platform::SetVariable("TMP", "");
  return root.value_or("/tmp");
}

}  // namespace tlm
