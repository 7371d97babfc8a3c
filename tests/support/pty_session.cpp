#include "support/pty_session.h"

#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include "support/eventually.h"

namespace tlm::test {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

PtySession::PtySession(std::vector<std::string> words, Environment environment, int columns, int lines) {
  environment.insert({{"PATH", std::getenv("PATH")}, {"TERM", "xterm"}});
  std::vector<std::string> entries;
  for (const auto& [name, value] : environment) entries.push_back(name + "=" + value);
  const std::vector<char*> wordPointers = Pointers(words);
  const std::vector<char*> entryPointers = Pointers(entries);
  if (openpty(&master_, &terminal_, nullptr, nullptr, nullptr) != 0) throw std::runtime_error("no terminal to be had");
  fcntl(master_, F_SETFL, O_NONBLOCK);
  tcgetattr(terminal_, &former_);
  Resize(columns, lines);
  pid_ = fork();
  if (pid_ == 0) {
    login_tty(terminal_);
    close_range(3, ~0U, 0);
    execve(wordPointers[0], wordPointers.data(), entryPointers.data());
    _exit(126);
  }
}

PtySession::~PtySession() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
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
  int status = 0;
  const bool ended = Eventually([&] { return Written(), waitpid(pid_, &status, WNOHANG) == pid_; });
  if (!ended) throw std::runtime_error("the program at the terminal does not end: " + written_);
  pid_ = -1;
  Written();
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool PtySession::HasFormerModes() const {
  termios now = {};
  return tcgetattr(terminal_, &now) == 0 && now.c_lflag == former_.c_lflag && now.c_iflag == former_.c_iflag;
}

}  // namespace tlm::test
