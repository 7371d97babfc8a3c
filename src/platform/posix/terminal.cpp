#include "platform/terminal.h"

#include <atomic>
#include <cstdlib>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/thread.h"

namespace tlm::platform {

namespace {

// Of standard input, before a KeyInput changed it.
termios formerState;
std::atomic<bool> changed = false;

// A process in the background would be stopped for touching the terminal.
bool IsInForeground() { return tcgetpgrp(STDIN_FILENO) == getpgrp(); }

void Restore() {
  if (changed.exchange(false) && IsInForeground()) tcsetattr(STDIN_FILENO, TCSANOW, &formerState);
}

void TakeKeysAtOnce(termios state) {
  state.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  tcsetattr(STDIN_FILENO, TCSANOW, &state);
}

int DescriptorOf(StandardStream stream) {
  switch (stream) {
    case StandardStream::Input:
      return STDIN_FILENO;
    case StandardStream::Output:
      return STDOUT_FILENO;
    case StandardStream::Error:
      break;
  }
  return STDERR_FILENO;
}

std::optional<int> SizeOf(StandardStream stream, unsigned short winsize::*extent, int usual) {
  winsize size = {};
  if (!IsTerminal(stream)) return std::nullopt;
  return ioctl(DescriptorOf(stream), TIOCGWINSZ, &size) == 0 && size.*extent > 0 ? size.*extent : usual;
}

}  // namespace

bool IsTerminal(StandardStream stream) { return isatty(DescriptorOf(stream)) != 0; }

std::optional<int> TerminalWidth(StandardStream stream) {
  constexpr int kUsualWidth = 80;
  return SizeOf(stream, &winsize::ws_col, kUsualWidth);
}

std::optional<int> TerminalHeight(StandardStream stream) {
  constexpr int kUsualHeight = 24;
  return SizeOf(stream, &winsize::ws_row, kUsualHeight);
}

bool HasLostItsReader(StandardStream stream) {
  pollfd entry = {DescriptorOf(stream), 0, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & (POLLERR | POLLHUP)) != 0;
}

bool ShowAtKeyboard(const std::string& text) {
  if (!IsTerminal(StandardStream::Input)) return false;
  auto terminal = File::Open("/dev/tty", File::Mode::Append);
  return terminal && terminal->Write(text);
}

KeyInput::KeyInput() {
  if (tcgetattr(STDIN_FILENO, &formerState) != 0 || !IsInForeground()) return;
  static const bool registered = std::at_quick_exit(Restore) == 0;
  (void)registered;
  active_ = changed = true;
  TakeKeysAtOnce(formerState);
}

KeyInput::~KeyInput() { Restore(); }

std::optional<char> KeyInput::Wait(std::chrono::milliseconds limit) {
  termios state;
  const bool canRead = active_ && IsInForeground() && tcgetattr(STDIN_FILENO, &state) == 0;
  // A shell that has stopped this process and lets it go on has the modes as it likes them itself.
  if (canRead && (state.c_lflag & ICANON) != 0) TakeKeysAtOnce(state);
  pollfd entry = {STDIN_FILENO, POLLIN, 0};
  if (canRead && poll(&entry, 1, static_cast<int>(limit.count())) == 0) return std::nullopt;
  char key = 0;
  if (canRead && IsInForeground() && read(STDIN_FILENO, &key, 1) == 1) return key;
  Sleep(limit);
  return std::nullopt;
}

}  // namespace tlm::platform
