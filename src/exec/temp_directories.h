// The root under which the server's directories lie.
#pragma once

#include <string>

namespace tlm {

// The product's temporary directory, else what TMPDIR, TMP or TEMP of the process environment says, else the system's.
// An empty text is no value. Unless TMP gave it, TMP is taken out of the environment, so that no child inherits it.
std::string DeriveTempRoot();

}  // namespace tlm
