#include "platform/process.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "platform/posix/children.h"
#include "platform/posix/descriptor_limit.h"
#include "platform/posix/interrupt.h"
#include "platform/posix/path.h"
#include "platform/posix/program_line.h"

// This header is not made for C++ everywhere.
extern "C" {
#include <sys/pidfd.h>
}

namespace tlm::platform {

namespace {

// Only a file takes output without a wait: at a pipe the open would wait for a reader.
int OpenOutput(const LaunchRequest& request) {
  const int noFollow = request.OutputMayBeLink ? 0 : O_NOFOLLOW;
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | noFollow;
  const int descriptor = RetryInterrupted([&] { return open(SystemPath(request.OutputFile), flags, 0666); });
  struct stat status;
  if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISFIFO(status.st_mode)) return descriptor;
  close(descriptor);
  return -1;
}

// Where both output streams of a child go.
class Output {
 public:
  explicit Output(const LaunchRequest& request) : descriptor_(OpenOutput(request)) {
    if (descriptor_ >= 0) fcntl(descriptor_, F_SETFL, fcntl(descriptor_, F_GETFL) & ~O_NONBLOCK);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  int Descriptor() const { return descriptor_ >= 0 ? descriptor_ : STDERR_FILENO; }

  void Write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t written = RetryInterrupted([&] { return write(Descriptor(), text.data(), text.size()); });
      if (written <= 0) return;
      text.remove_prefix(static_cast<std::size_t>(written));
    }
  }

 private:
  int descriptor_;
};

// What the child does between its birth and the program's start. The system runs these steps without copying this
// process's memory, however large that is.
class SpawnSteps {
 public:
  SpawnSteps(const LaunchRequest& request, int output) {
    Check(posix_spawn_file_actions_init(&actions_));
    Check(posix_spawnattr_init(&attributes_));
    if (!request.Directory.empty())
      Check(posix_spawn_file_actions_addchdir_np(&actions_, SystemPath(request.Directory)));
    Check(posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
    Check(posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO));
    Check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));

    sigset_t signals;
    sigemptyset(&signals);
    Check(posix_spawnattr_setsigmask(&attributes_, &signals));
    // sigfillset leaves out the signals that the C library uses itself, and the child would be born ignoring them.
    std::memset(&signals, 0xFF, sizeof signals);
    Check(posix_spawnattr_setsigdefault(&attributes_, &signals));
    Check(posix_spawnattr_setpgroup(&attributes_, 0));
    const int group = request.OwnGroup ? POSIX_SPAWN_SETPGROUP : 0;
    Check(posix_spawnattr_setflags(&attributes_,
                                   static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | group)));
  }
  SpawnSteps(const SpawnSteps&) = delete;
  SpawnSteps& operator=(const SpawnSteps&) = delete;
  ~SpawnSteps() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  bool Complete() const { return complete_; }
  const posix_spawn_file_actions_t* Actions() const { return &actions_; }
  const posix_spawnattr_t* Attributes() const { return &attributes_; }

 private:
  void Check(int error) { complete_ = complete_ && error == 0; }

  posix_spawn_file_actions_t actions_ = {};
  posix_spawnattr_t attributes_ = {};
  bool complete_ = true;
};

// The form in which a program is handed its words; they must outlive it.
std::vector<char*> WordPointers(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::optional<pid_t> Spawn(const LaunchRequest& request, int output) {
  const std::optional<ProgramLine> line = ParseProgramLine(request.CommandLine);
  const SpawnSteps steps(request, output);
  if (!line || !steps.Complete()) return std::nullopt;
  pid_t id = 0;
  const int error = posix_spawn(&id, SystemPath(line->Program), steps.Actions(), steps.Attributes(),
                                WordPointers(line->Arguments).data(), WordPointers(request.Environment).data());
  if (error != 0) return std::nullopt;
  return id;
}

// A process that was itself started with SIGCHLD ignored would never learn how its children ended, and their ids would
// be free for others before it has seen the end.
void KeepEndedChildren() {
  struct sigaction action = {};
  if (sigaction(SIGCHLD, nullptr, &action) != 0) return;
  if (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0) std::signal(SIGCHLD, SIG_DFL);
}

// For a child that cannot be followed.
void EndAndForget(pid_t child, bool ownGroup) {
  kill(ownGroup ? -child : child, SIGKILL);
  RetryInterrupted([&] { return waitpid(child, nullptr, 0); });
}

std::uint32_t CodeOf(const siginfo_t& end, bool terminated) {
  const auto status = static_cast<std::uint32_t>(end.si_status);
  if (end.si_code == CLD_EXITED) return status;
  return terminated && end.si_status == SIGKILL ? 0 : 128 + status;
}

std::optional<int> NiceValue(std::uint32_t level) {
  switch (level) {
    case 0:
    case 1:
    case 0x40:
      return 19;
    case 2:
    case 0x20:
      return 0;
    case 3:
    case 0x80:
      return -10;
    case 4:
    case 0x100:
      return -20;
    default:
      return std::nullopt;
  }
}

}  // namespace

Interruption::Interruption() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Interruption::~Interruption() {
  if (descriptor_ >= 0) close(descriptor_);
}

void Interruption::Raise() noexcept {
  if (descriptor_ >= 0) eventfd_write(descriptor_, 1);
}

std::optional<Process> Process::Launch(const LaunchRequest& request) {
  const auto pass = TheChildren().Enter();
  if (!pass) return std::nullopt;
  KeepEndedChildren();
  const Output output(request);
  if (const std::optional<pid_t> child = Spawn(request, output.Descriptor())) {
    // The child has not been waited for, so that its id is surely still its own here.
    RestoreDescriptorLimit(*child);
    const int descriptor = pidfd_open(*child, 0);
    if (descriptor >= 0) {
      TheChildren().Add(*child, request.OwnGroup);
      return Process(*child, descriptor, true, request.OwnGroup);
    }
    EndAndForget(*child, request.OwnGroup);
  }
  output.Write(request.FailureText);
  return std::nullopt;
}

std::optional<Process> Process::Open(std::int32_t id) {
  const int descriptor = pidfd_open(id, 0);
  if (descriptor < 0) return std::nullopt;
  return Process(id, descriptor, false, false);
}

Process::Process(Process&& other) noexcept
    : id_(other.id_),
      descriptor_(std::exchange(other.descriptor_, -1)),
      isChild_(other.isChild_),
      ownGroup_(other.ownGroup_),
      terminated_(other.terminated_),
      exitCode_(other.exitCode_) {}

Process& Process::operator=(Process&& other) noexcept {
  if (this == &other) return *this;
  Close();
  id_ = other.id_;
  descriptor_ = std::exchange(other.descriptor_, -1);
  isChild_ = other.isChild_;
  ownGroup_ = other.ownGroup_;
  terminated_ = other.terminated_;
  exitCode_ = other.exitCode_;
  return *this;
}

Process::~Process() { Close(); }

void Process::Close() noexcept {
  if (descriptor_ < 0) return;
  ExitCode();  // an ended child must not stay in the process table
  close(descriptor_);
}

std::optional<std::uint32_t> Process::ExitCode() {
  if (exitCode_) return exitCode_;
  siginfo_t end = {};
  if (isChild_ && TheChildren().Wait(id_, descriptor_, end) == 0) {
    if (end.si_pid != 0) exitCode_ = CodeOf(end, terminated_);
  } else if (WaitForEnd(std::chrono::milliseconds(0))) {
    exitCode_ = kUnknownExitCode;
  }
  return exitCode_;
}

bool Process::WaitForEnd(std::chrono::milliseconds limit, const Interruption* interruption) const {
  using std::chrono::milliseconds;
  using std::chrono::steady_clock;
  const steady_clock::time_point end = steady_clock::now() + std::clamp(limit, milliseconds(0), milliseconds(INT_MAX));
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    // One below 0 is passed over.
    pollfd entries[] = {{descriptor_, POLLIN, 0}, {interruption ? interruption->descriptor_ : -1, POLLIN, 0}};
    const int ready = poll(entries, std::size(entries), static_cast<int>(std::max<milliseconds::rep>(left.count(), 0)));
    if (ready >= 0) return entries[0].revents != 0;
    if (errno == EINTR) continue;
    std::this_thread::sleep_for(left);  // who asks again and again must not do so without a pause
    return false;
  }
}

void Process::Terminate() noexcept {
  if (exitCode_) return;
  if (!WaitForEnd(std::chrono::milliseconds(0))) terminated_ = true;
  if (ownGroup_) kill(-id_, SIGKILL);
  // Also a leader that has left its group.
  pidfd_send_signal(descriptor_, SIGKILL, nullptr, 0);
}

std::vector<std::int32_t> Process::TerminateAll() { return TheChildren().TerminateAll(); }

void Process::SetPriority(std::uint32_t level) noexcept {
  const std::optional<int> nice = NiceValue(level);
  if (!nice || exitCode_ || WaitForEnd(std::chrono::milliseconds(0))) return;
  if (ownGroup_) {
    setpriority(PRIO_PGRP, static_cast<id_t>(id_), *nice);
    return;
  }
  // A nice value belongs to a thread here.
  std::error_code error;
  std::filesystem::directory_iterator thread("/proc/" + std::to_string(id_) + "/task", error);
  for (; !error && thread != std::filesystem::directory_iterator(); thread.increment(error)) {
    const int threadId = std::atoi(thread->path().filename().c_str());
    setpriority(PRIO_PROCESS, static_cast<id_t>(threadId), *nice);
  }
}

}  // namespace tlm::platform
