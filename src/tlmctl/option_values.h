// What may stand as the value of an option or an argument, by the name of its type.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tlm::ctl {

// An argument or option that is a whole number from 1 on; it stays as it is if none is given.
CLI::Option* AddCount(CLI::App& command, const std::string& name, std::uint32_t& count, const std::string& description);

// An argument or option that is one of the levels of priority.
CLI::Option* AddPriorityLevel(CLI::App& command, const std::string& name, std::string& level,
                              const std::string& description);

// The name as the command gave it, as in "JOB"; without what the checks of the value have added.
std::string KindOf(const CLI::Option& option);

// The words that it has to be one of, as in "{idle,normal}"; none if it may be anything.
std::vector<std::string> ChoicesOf(const CLI::Option& option);

}  // namespace tlm::ctl
