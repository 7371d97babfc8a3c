#include "child.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace tlm::bench {

namespace fs = std::filesystem;

namespace {

double Seconds(clockid_t clock) {
  timespec time{};
  Check(clock_gettime(clock, &time), "reading a clock");
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::vector<char*> Pointers(const Words& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

void Require(bool holds, const std::string& failure) {
  if (!holds) throw std::runtime_error(failure);
}

long Check(long result, const std::string& what) {
  if (result == -1) throw std::runtime_error(what + ": " + std::strerror(errno));
  return result;
}

double Now() { return Seconds(CLOCK_MONOTONIC); }

pid_t Spawn(const Words& command, const Words& environment) {
  Words all;
  for (char** entry = environ; *entry; ++entry) all.emplace_back(*entry);
  all.insert(all.end(), environment.begin(), environment.end());
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, command[0].c_str(), &actions, nullptr, Pointers(command).data(),  //
                                 Pointers(all).data());
  posix_spawn_file_actions_destroy(&actions);
  Require(error == 0, command[0] + ": " + std::strerror(error));
  return pid;
}

void Run(const Words& command, const Words& environment) {
  int status = 0;
  Check(waitpid(Spawn(command, environment), &status, 0), "waiting for " + command[0]);
  Require(status == 0, command[0] + " has failed");
}

std::string FindProgram(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream directories(path ? path : "/usr/bin");
  for (std::string directory; std::getline(directories, directory, ':');) {
    const fs::path program = fs::path(directory) / name;
    if (access(program.c_str(), X_OK) == 0) return program;
  }
  return {};
}

Scratch::Scratch() {
  std::string name = fs::temp_directory_path() / "tlm_bench.XXXXXX";
  Require(mkdtemp(name.data()), "no directory for temporary files can be made");
  root_ = name;
}

Scratch::~Scratch() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

Child::Child(const std::function<void()>& run) : pid_(static_cast<pid_t>(Check(fork(), "fork"))) {
  if (pid_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tlm_bench: in a child: %s\n", error.what());
  }
  _exit(1);
}

Child::~Child() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool Child::IsRunning() const {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

double Child::ProcessorSeconds() const {
  clockid_t clock = 0;
  Require(clock_getcpuclockid(pid_, &clock) == 0, "a process that is measured has gone");
  return Seconds(clock);
}

double Child::MainThreadSeconds() const {
  double nanoseconds = 0;
  Require(static_cast<bool>(std::ifstream(Proc("schedstat")) >> nanoseconds), "there is no /proc/PID/schedstat");
  return nanoseconds * 1e-9;
}

std::size_t Child::Resident() const { return StatusBytes("VmRSS:"); }
std::size_t Child::PeakResident() const { return StatusBytes("VmHWM:"); }

void Child::ForgetPeak() const {
  std::ofstream file(Proc("clear_refs"));
  Require(static_cast<bool>(file << "5" << std::flush), "/proc/PID/clear_refs cannot be written");
}

void Child::AwaitRest() const {
  constexpr double kLongest = 30;
  constexpr auto kPause = std::chrono::milliseconds(20);
  constexpr double kAtRest = 0.0005;  // seconds of work within a pause
  for (const double end = Now() + kLongest; Now() < end;) {
    const double before = ProcessorSeconds();
    std::this_thread::sleep_for(kPause);
    if (ProcessorSeconds() - before < kAtRest) return;
  }
  Require(false, "a process that has nothing to do does not come to rest");
}

SharedProcessor::SharedProcessor(const Child& child) : child_(child.Id()) {
  Check(sched_getaffinity(0, sizeof before_, &before_), "asking for processors");
  int last = CPU_SETSIZE - 1;  // the first ones have most of the interrupts
  while (!CPU_ISSET(last, &before_)) --last;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(last, &one);
  for (pid_t pid : {0, child_}) Check(sched_setaffinity(pid, sizeof one, &one), "choosing a processor");
}

SharedProcessor::~SharedProcessor() {
  for (pid_t pid : {0, child_}) sched_setaffinity(pid, sizeof before_, &before_);
}

fs::path Child::Proc(const std::string& file) const { return fs::path("/proc") / std::to_string(pid_) / file; }

std::size_t Child::StatusBytes(const std::string& name) const {
  std::ifstream status(Proc("status"));
  for (std::string word; status >> word;) {
    std::size_t kilobytes = 0;
    if (word == name && status >> kilobytes) return kilobytes * 1024;
  }
  throw std::runtime_error("a process that is measured has gone");
}

}  // namespace tlm::bench
