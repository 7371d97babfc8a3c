// From the words of a command to the text that a server takes apart again.
#pragma once

#include <string>
#include <vector>

namespace tlm::ctl {

// A command text that starts the first word's program with the other words as its arguments, whatever white space,
// quotes, backslashes and ';' they hold. The one thing that cannot be passed on is a double quote: throws Failure.
std::string CommandText(const std::vector<std::string>& words);

}  // namespace tlm::ctl
