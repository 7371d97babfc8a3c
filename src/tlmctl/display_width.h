// How much room a text takes on a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace tlm::ctl {

// Columns that the text takes, in UTF-8. A byte that is none of it counts as one.
std::size_t DisplayWidth(const std::string& text);
// The text, or as much of it as the width holds, with a mark at its end.
std::string CutToWidth(const std::string& text, std::size_t width);

}  // namespace tlm::ctl
