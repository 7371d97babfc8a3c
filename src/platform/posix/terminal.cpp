#include "platform/terminal.h"

#include <atomic>
#include <cstdlib>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/thread.h"

namespace tlm::platform {

namespace {

// Of standard input, before a KeyInput changed it.
termios formerState;
std::atomic<bool> changed = false;

void Restore() {
  if (changed.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &formerState);
}

std::optional<int> SizeOf(std::FILE* stream, unsigned short winsize::*extent, int usual) {
  winsize size = {};
  if (!IsTerminal(stream)) return std::nullopt;
  return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.*extent > 0 ? size.*extent : usual;
}

}  // namespace

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) != 0; }

std::optional<int> TerminalWidth(std::FILE* stream) {
  constexpr int kUsualWidth = 80;
  return SizeOf(stream, &winsize::ws_col, kUsualWidth);
}

std::optional<int> TerminalHeight(std::FILE* stream) {
  constexpr int kUsualHeight = 24;
  return SizeOf(stream, &winsize::ws_row, kUsualHeight);
}

KeyInput::KeyInput() {
  // A process in the background would be stopped for touching the terminal.
  if (tcgetattr(STDIN_FILENO, &formerState) != 0 || tcgetpgrp(STDIN_FILENO) != getpgrp()) return;
  static const bool registered = std::at_quick_exit(Restore) == 0;
  (void)registered;
  termios state = formerState;
  state.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  active_ = changed = true;
  tcsetattr(STDIN_FILENO, TCSANOW, &state);
}

KeyInput::~KeyInput() { Restore(); }

std::optional<char> KeyInput::Wait(std::chrono::milliseconds limit) {
  pollfd entry = {STDIN_FILENO, POLLIN, 0};
  if (active_ && poll(&entry, 1, static_cast<int>(limit.count())) == 0) return std::nullopt;
  char key = 0;
  if (active_ && read(STDIN_FILENO, &key, 1) == 1) return key;
  Sleep(limit);
  return std::nullopt;
}

}  // namespace tlm::platform
