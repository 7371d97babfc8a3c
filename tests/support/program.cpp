#include "support/program.h"

#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/eventually.h"
#include "support/sandbox.h"

namespace tlm::test {
namespace {
std::vector<char*> Pointers(Words& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}
}  // namespace

Program::Program(Words words, const Environment& environment, const std::function<void()>& prepare) {
  Words entries;
  for (const char* name : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && !environment.contains(name)) entries.push_back(std::string(name) + "=" + value);
  }
  for (const auto& [name, value] : environment) entries.push_back(name + "=" + value);
  const std::vector<char*> wordPointers = Pointers(words), entryPointers = Pointers(entries);
  const int parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("no process to be had for " + words[0]);
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(126);  // it has gone before that
    prepare();
    close_range(3, ~0U, 0);  // nor does anything reach it that the test was started with
    execve(wordPointers[0], wordPointers.data(), entryPointers.data());
    _exit(126);
  }
}

Program::Program(const Words& words, const Environment& environment, const std::string& outputFile)
    : Program(words, environment, [&outputFile] {
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
        dup2(open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), 1);
        dup2(1, 2);
      }) {}

Program::~Program() {
  if (exitCode_) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int Program::Pid() const {
  if (exitCode_) throw std::logic_error("the program has ended");
  return pid_;
}

std::optional<int> Program::ExitCode() {
  int status = 0;
  if (!exitCode_ && waitpid(pid_, &status, WNOHANG) == pid_) {
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return exitCode_;
}

ProgramEnd RunProgram(const Words& words, const Environment& environment) {
  const Sandbox disk;
  Program program(words, environment, disk.Path("output"));
  if (!Eventually([&] { return program.ExitCode().has_value(); }, 3 * kPatience)) {
    throw std::runtime_error("the program does not end: " + disk.Read("output"));
  }
  return {*program.ExitCode(), disk.Read("output")};
}
}  // namespace tlm::test
