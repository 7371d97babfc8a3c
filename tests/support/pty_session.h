// A program at a terminal, and the person before it.
#pragma once

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <termios.h>

#include "support/program.h"

namespace tlm::test {
class PtySession {
 public:
  // TERM is xterm unless the environment says otherwise.
  PtySession(const Words& words, Environment environment, int columns = 80, int lines = 24);
  PtySession(const PtySession&) = delete;
  PtySession& operator=(const PtySession&) = delete;
  ~PtySession();  // kills it

  // All bytes that the program has written to the terminal so far.
  const std::string& Written();
  testing::AssertionResult Shows(const std::string& text);
  void Type(const std::string& keys) const;
  void Resize(int columns, int lines) const;
  int Pid() const { return program_->Pid(); }
  // Waits for the end, and gives the exit code.
  int AwaitEnd();
  // True if the terminal edits and shows what is typed, as it did before the program.
  bool HasFormerModes() const;

 private:
  int master_ = -1;
  int terminal_ = -1;  // kept open, so that its modes can be looked at
  std::optional<Program> program_;
  termios former_ = {};
  std::string written_;
};
}  // namespace tlm::test
