// The process environment, safe to read and to change from any thread. It starts as the environment that the process
// was given; changes are seen by this process and by every program that it starts later, in the order in which the
// entries were first made.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tlm::platform {

// Empty if there is no such variable; a variable that is set and empty gives the empty text.
std::optional<std::string> GetVariable(const std::string& name);

// Replaces an earlier value. An empty value removes the variable, and an empty name or one with '=' has no effect.
void SetVariable(const std::string& name, const std::string& value);

// All entries as NAME=value.
std::vector<std::string> EnvironmentEntries();

}  // namespace tlm::platform
