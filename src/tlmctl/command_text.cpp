#include "tlmctl/command_text.h"

#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

constexpr char kWhiteSpace[] = " \t\n\r\f\v";

// For the system that starts the program: blanks separate there, and double quotes group and vanish.
std::string ForProgramLine(const std::string& word) {
  if (word.find('"') != std::string::npos) {
    throw Failure{kUsage, "a job's command cannot pass on a double quote: " + word};
  }
  return word.empty() || word.find_first_of(" \t") != std::string::npos ? '"' + word + '"' : word;
}

// For the server, which takes quotes away and cuts at white space and ';': a single quote protects all but itself.
std::string ForServer(const std::string& word) {
  if (word.find_first_of(std::string(kWhiteSpace) + "'\"\\;") == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) {
    if (c == '\'') {
      text += "'\\''";
    } else {
      text += c;
    }
  }
  return text + '\'';
}

}  // namespace

std::string CommandText(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    text += ForServer(ForProgramLine(word));
  }
  return text;
}

}  // namespace tlm::ctl
