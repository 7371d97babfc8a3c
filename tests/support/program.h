// Programs that a test starts, and how they end.
#pragma once

#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tlm::test {
using Words = std::vector<std::string>;
inline Words operator+(Words first, const Words& rest) {
  first.insert(first.end(), rest.begin(), rest.end());
  return first;
}
using Environment = std::map<std::string, std::string>;

// How often the part stands in the text.
inline std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

// Nothing of the test's own environment reaches it but PATH and what sanitizers are told. It goes with the test.
class Program {
 public:
  // The child itself prepares what it starts with.
  Program(Words words, const Environment& environment, const std::function<void()>& prepare);
  // Both output streams go to the end of the file.
  Program(const Words& words, const Environment& environment, const std::string& outputFile);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();  // kills it

  // Throws once it is known to have ended: the id may be another's.
  int Pid() const;
  // Never waits. Empty while it runs, then 128 + signal for a signal, the same at each call.
  std::optional<int> ExitCode();

 private:
  int pid_ = -1;
  std::optional<int> exitCode_;
};

struct ProgramEnd {
  int ExitCode = -1;
  std::string Output;  // of both streams
  friend void PrintTo(const ProgramEnd& end, std::ostream* out) { *out << end.ExitCode << ": " << end.Output; }
};
// Matches such an end by its code and by a matcher, or the whole text, of its output.
auto Ends(int exitCode, const auto& output) {
  return testing::AllOf(testing::Field(&ProgramEnd::ExitCode, exitCode), testing::Field(&ProgramEnd::Output, output));
}

// Runs a program to its end. Throws if it does not come to it within a generous limit.
ProgramEnd RunProgram(const Words& words, const Environment& environment = {});
}  // namespace tlm::test
