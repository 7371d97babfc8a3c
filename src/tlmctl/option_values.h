// What may stand as the value of an option or an argument, by the name of its type.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tlm::ctl {

// The name as the command gave it, as in "JOB"; without what the checks of the value have added.
std::string KindOf(const CLI::Option& option);

// The words that it has to be one of, as in "{idle,normal}"; none if it may be anything.
std::vector<std::string> ChoicesOf(const CLI::Option& option);

}  // namespace tlm::ctl
