// The person at the terminal, if there is one.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tlm::platform {

enum class StandardStream { Input, Output, Error };

// True if what is written to the stream appears on a terminal, or what is read from it is typed there.
bool IsTerminal(StandardStream stream);

// Characters in a line of the stream's terminal; empty if it is none.
std::optional<int> TerminalWidth(StandardStream stream);
// Lines of the stream's terminal; empty if it is none.
std::optional<int> TerminalHeight(StandardStream stream);

// True if nobody is left to read what is written to the stream, a pipe.
bool HasLostItsReader(StandardStream stream);
// Puts the text in front of the person who types standard input, wherever the other streams go. False if that is no
// terminal.
bool ShowAtKeyboard(const std::string& text);

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
