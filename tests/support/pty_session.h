// A program at a terminal, and the person before it.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <termios.h>
#include <vector>

#include "support/server_process.h"

namespace tlm::test {

class PtySession {
 public:
  // Nothing of the test's own environment reaches the program but PATH; TERM is xterm.
  PtySession(std::vector<std::string> words, Environment environment, int columns = 80, int lines = 24);
  PtySession(const PtySession&) = delete;
  PtySession& operator=(const PtySession&) = delete;
  ~PtySession();  // kills it

  // All bytes that the program has written to the terminal so far.
  const std::string& Written();
  testing::AssertionResult Shows(const std::string& text);
  void Type(const std::string& keys) const;
  void Resize(int columns, int lines) const;
  int Pid() const { return pid_; }
  // Waits for the end, and gives the exit code, 128 + signal for a signal.
  int AwaitEnd();
  // True if the terminal edits and shows what is typed, as it did before the program.
  bool HasFormerModes() const;

 private:
  int master_ = -1;
  int terminal_ = -1;  // kept open, so that its modes can be looked at
  int pid_ = -1;
  termios former_ = {};
  std::string written_;
};

}  // namespace tlm::test
