// Texts as they stand in JSON.
#pragma once

#include <string>
#include <string_view>

namespace tlm {

// The text in quotes, on one line, and in UTF-8 whatever it holds: each byte that is none becomes U+FFFD.
std::string JsonText(std::string_view text);

}  // namespace tlm
