#include "support/server_process.h"

#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm::test {

namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Both output streams go to the file.
int StartProgram(std::vector<std::string> arguments, const Environment& environment, const std::string& outputFile) {
  std::vector<std::string> entries;
  if (!environment.contains("PATH")) entries.push_back(std::string("PATH=") + std::getenv("PATH"));
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) entries.push_back(std::string(name) + "=" + value);
  }
  for (const auto& [name, value] : environment) entries.push_back(name + "=" + value);
  const std::vector<char*> argumentPointers = Pointers(arguments);
  const std::vector<char*> entryPointers = Pointers(entries);
  const int pid = fork();
  if (pid == 0) {
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
    dup2(open(outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), 1);
    dup2(1, 2);
    close_range(3, ~0U, 0);  // nor does anything reach it that the test was started with
    execve(argumentPointers[0], argumentPointers.data(), entryPointers.data());
    _exit(126);
  }
  return pid;
}

int ExitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

}  // namespace

std::uint16_t FreePort() { return RawListener().Port(); }

bool Listens(std::uint16_t port) {
  try {
    RawConnection connection(port);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

Finished RunProgram(const std::vector<std::string>& arguments, const Environment& environment) {
  const Sandbox disk;
  const int pid = StartProgram(arguments, environment, disk.Path("output"));
  int status = 0;
  waitpid(pid, &status, 0);
  return {ExitCodeOf(status), disk.Read("output")};
}

ServerProcess::ServerProcess(const Environment& environment, const std::string& command, const std::string& executable)
    : port_(FreePort()), environment_(environment) {
  const Environment usual{{"TSQOR_JMPORT", std::to_string(port_)},
                          {"TSQOR_HOME", home_.Root()},
                          {"TSQOR_TMP", root_.Root()},
                          {"TS_MACHINE_REGISTRY", home_.Path("no-machine-registry")},
                          {"TS_USER_REGISTRY", home_.Path("no-user-registry")}};
  environment_.insert(usual.begin(), usual.end());
  port_ = static_cast<std::uint16_t>(std::stoi(environment_["TSQOR_JMPORT"]));
  std::filesystem::create_directories(home_.Path("bin"));
  std::vector<std::string> arguments{executable};
  if (!command.empty()) arguments.push_back(command);
  pid_ = StartProgram(arguments, environment_, home_.Path("server.log"));
  if (!Eventually([this] { return Listens(port_) || !IsRunning(); }) || !IsRunning()) {
    throw std::runtime_error("the server does not listen: " + Output());
  }
}

ServerProcess::~ServerProcess() {
  if (pid_ <= 0) return;
  EXPECT_TRUE(IsRunning()) << "the server had ended:\n" << Output();
  Kill();
}

int ServerProcess::Stop() {
  RawConnection(port_).Send(Record(Call(17)));
  return AwaitEnd();
}

int ServerProcess::AwaitEnd() {
  int status = 0;
  if (!Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
    throw std::runtime_error("the server does not end: " + Output());
  }
  pid_ = -1;
  return ExitCodeOf(status);
}

bool ServerProcess::IsRunning() {
  siginfo_t info{};
  return pid_ > 0 && waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

void ServerProcess::Kill() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::size_t ServerProcess::PeakMemory() const {
  std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
  const std::string status{std::istreambuf_iterator<char>(file), {}};
  return std::stoul(status.substr(status.find("VmHWM:") + 6)) * 1024;
}

}  // namespace tlm::test
