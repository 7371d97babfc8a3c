#include "support/pty_session.h"

#include <fcntl.h>
#include <pty.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utmp.h>

#include "support/eventually.h"

namespace tlm::test {
PtySession::PtySession(const Words& words, Environment environment, int columns, int lines) {
  environment.insert({"TERM", "xterm"});
  if (openpty(&master_, &terminal_, nullptr, nullptr, nullptr) != 0) throw std::runtime_error("no terminal to be had");
  fcntl(master_, F_SETFL, O_NONBLOCK);
  tcgetattr(terminal_, &former_);
  Resize(columns, lines);
  program_.emplace(words, environment, [this] { login_tty(terminal_); });
}

PtySession::~PtySession() {
  program_.reset();
  close(master_);
  close(terminal_);
}

const std::string& PtySession::Written() {
  char buffer[4096];
  for (ssize_t length = 0; (length = read(master_, buffer, sizeof buffer)) > 0;) {
    written_.append(buffer, static_cast<std::size_t>(length));
  }
  return written_;
}

testing::AssertionResult PtySession::Shows(const std::string& text) {
  return Eventually([&] { return Written().find(text) != std::string::npos; }) << text << " in " << written_;
}

void PtySession::Type(const std::string& keys) const {
  EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void PtySession::Resize(int columns, int lines) const {
  winsize size = {};
  size.ws_col = static_cast<unsigned short>(columns);
  size.ws_row = static_cast<unsigned short>(lines);
  ioctl(terminal_, TIOCSWINSZ, &size);
}

int PtySession::AwaitEnd() {
  const bool ended = Eventually([&] { return Written(), program_->ExitCode().has_value(); });
  if (!ended) throw std::runtime_error("the program at the terminal does not end: " + written_);
  Written();
  return *program_->ExitCode();
}

bool PtySession::HasFormerModes() const {
  termios now = {};
  return tcgetattr(terminal_, &now) == 0 && now.c_lflag == former_.c_lflag && now.c_iflag == former_.c_iflag;
}
}  // namespace tlm::test
