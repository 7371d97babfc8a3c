#include "exec/temp_directories.h"

#include "libtsenv/product_environment.h"
#include "platform/environment.h"

namespace tlm {

std::string DeriveTempRoot() {
  std::string root = ProductValue("PRODUCT_TMP").value_or("");
  if (root.empty()) root = platform::GetVariable("TMPDIR").value_or("");
  if (root.empty()) {
    root = platform::GetVariable("TMP").value_or("");
    if (!root.empty()) return root;
  }
  if (root.empty()) root = platform::GetVariable("TEMP").value_or("");
  platform::SetVariable("TMP", "");
  return root.empty() ? "/tmp" : root;
}

}  // namespace tlm
