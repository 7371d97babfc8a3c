#include "platform/posix/program_line.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <utility>

#include "platform/file_system.h"

namespace tlm::platform {

namespace {

struct Word {
  std::string Text;
  std::size_t End;  // in the line
};

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::vector<Word> SplitWords(const std::string& line) {
  std::vector<Word> words;
  std::string text;
  bool inWord = false;
  bool quoted = false;
  for (std::size_t at = 0; at <= line.size(); ++at) {
    if (at == line.size() || (!quoted && IsBlank(line[at]))) {
      if (inWord) words.push_back({std::exchange(text, {}), at});
      inWord = false;
      continue;
    }
    inWord = true;
    if (line[at] == '"') {
      quoted = !quoted;
    } else {
      text += line[at];
    }
  }
  return words;
}

// Empty if this process's directory is needed and cannot be told: the child would take the path from another one.
std::string FullPath(const std::string& path) {
  if (path.starts_with('/')) return path;
  const std::string directory = CurrentDirectory();
  return directory.empty() ? directory : directory + '/' + path;
}

}  // namespace

std::optional<ProgramLine> ParseProgramLine(const std::string& commandLine) {
  std::vector<Word> words = SplitWords(commandLine);
  std::string name;
  auto taken = std::find_if_not(commandLine.begin(), commandLine.end(), IsBlank);
  for (auto word = words.begin(); word != words.end(); ++word) {
    const auto end = commandLine.begin() + static_cast<std::ptrdiff_t>(word->End);
    std::remove_copy(taken, end, std::back_inserter(name), '"');
    taken = end;
    if (name.size() >= PATH_MAX) break;

    const std::string path = FullPath(name);
    if (!IsExecutableFile(path)) continue;
    ProgramLine result{path, {name}};
    for (auto argument = word + 1; argument != words.end(); ++argument) {
      result.Arguments.push_back(std::move(argument->Text));
    }
    return result;
  }
  return std::nullopt;
}

}  // namespace tlm::platform
