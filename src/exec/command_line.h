// From a job's texts to what a process is started with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tlm {

// Cuts the first command off the buffer, with the ';' that ends it and the white space behind that, and gives its
// tokens, which may be none. White space separates tokens; single or double quotes group, and a backslash outside them
// takes the next character as it is; all three vanish. False if the buffer ends before a ';', as with a quote that is
// left open: then the tokens are those of the whole buffer, which stays as it was. O(length of the command).
[[nodiscard]] bool NextCommand(std::string_view& buffer, std::vector<std::string>& tokens);

// Each token and one blank. Nothing is quoted again.
std::string JoinTokens(const std::vector<std::string>& tokens);

// The environment of a job's process as NAME=value: the id of its parent unless that is 0, the task key and the job's
// own entry unless they are empty, then the entries that this process has now, without those of the names before.
std::vector<std::string> ChildEnvironment(const std::string& entry, const std::string& taskKey, std::int64_t parentId);

// The line that the output of a program which cannot be started gets, in two bytes per character, low byte first. A
// byte that is no part of UTF-8 text is taken as Latin-1.
std::string FailureText(const std::string& commandLine);

}  // namespace tlm
