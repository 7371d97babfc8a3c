// The program and the arguments that a command line names.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tlm::platform {

struct ProgramLine {
  std::string Program;                 // full path
  std::vector<std::string> Arguments;  // the program as the line names it, then the words behind it
};

// Blanks separate words; double quotes group and vanish, and an empty pair is a word. The program is the first word, or
// the shortest longer prefix of words, with the blanks between them, that names an executable file; a relative path is
// taken from this process's directory. Empty if there is none, or only beyond the length of a path.
std::optional<ProgramLine> ParseProgramLine(const std::string& commandLine);

}  // namespace tlm::platform
