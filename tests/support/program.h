// Programs that a test starts, and how they end.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tlm::test {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

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
};

// Runs a program to its end. Throws if it does not come to it within a generous limit.
ProgramEnd RunProgram(const Words& words, const Environment& environment = {});

}  // namespace tlm::test
