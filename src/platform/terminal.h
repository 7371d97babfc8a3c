// The person at the terminal, if there is one.
#pragma once

#include <chrono>
#include <cstdio>
#include <optional>

namespace tlm::platform {

// True if what is written to the stream appears on a terminal, or what is read from it is typed there.
bool IsTerminal(std::FILE* stream);

// Characters in a line of the stream's terminal; empty if it is none.
std::optional<int> TerminalWidth(std::FILE* stream);
// Lines of the stream's terminal; empty if it is none.
std::optional<int> TerminalHeight(std::FILE* stream);

// While it lives, what is typed is neither shown nor held back until the end of the line; an end of the process by
// std::quick_exit sets that right, too. Without a terminal on standard input it has no effect. One at a time.
class KeyInput {
 public:
  KeyInput();
  KeyInput(const KeyInput&) = delete;
  KeyInput& operator=(const KeyInput&) = delete;
  ~KeyInput();

  // The next key, empty if none has come in this time.
  std::optional<char> Wait(std::chrono::milliseconds limit);

 private:
  bool active_ = false;
};

}  // namespace tlm::platform
