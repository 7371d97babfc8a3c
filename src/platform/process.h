// Start a program and follow it to its end.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tlm::platform {

// The exit code of a process whose code cannot be had.
inline constexpr std::uint32_t kUnknownExitCode = 0xFFFFFFFF;

struct LaunchRequest {
  std::string CommandLine;               // blanks separate, double quotes group and vanish; see Launch
  std::vector<std::string> Environment;  // NAME=value, in this order; nothing else is inherited
  std::string Directory;                 // made current in the child only
  std::string OutputFile;                // both output streams, appended to; made if missing
  bool OutputMayBeLink = true;           // else a link in its place cannot be opened
  std::string FailureText;               // written to the output as it stands if the program cannot be started
  bool OwnGroup = true;                  // the child leads a process group of its own
};

// Ends waits for processes before their time: raised once, and then for good. If the system has no descriptor for it,
// those waits last as long as without it. Any thread.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();
  void Raise() noexcept;

 private:
  friend class Process;
  int descriptor_;
};

// A running or ended process. Only its holder may end it. Used by one thread at a time.
class Process {
 public:
  // The program is the first word of the command line; if that is no executable file, longer and longer
  // blank-separated prefixes of the line are tried, so that its path may hold blanks. Standard input is this process's
  // own. An output file that cannot be opened is replaced by this process's standard error. The child has no other
  // descriptor, default signal dispositions and an empty signal mask. Empty if it could not be started; then there is
  // no child.
  static std::optional<Process> Launch(const LaunchRequest& request);
  // A process that was not started here. Empty if there is none of this id.
  static std::optional<Process> Open(std::int32_t id);

  Process(Process&& other) noexcept;
  Process& operator=(Process&& other) noexcept;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();  // leaves a running process as it is

  std::int32_t Id() const { return id_; }

  // Never waits. Empty while the process runs, then its exit code, the same at each call: the program's own; 128 and
  // the signal's number if a signal ended it; 0 if Terminate did; kUnknownExitCode if it was not started here.
  std::optional<std::uint32_t> ExitCode();
  // True as soon as the process has ended, false if it has not within the limit or before the interruption. Also for
  // other threads, whatever else is being done with the process.
  bool WaitForEnd(std::chrono::milliseconds limit, const Interruption* interruption = nullptr) const;
  // Ends the process at once, with its group if it was started to lead one. A group whose leader has ended is still
  // ended, as long as ExitCode has not told the leader's end.
  void Terminate() noexcept;
  // Terminates every process that was started here and whose end nobody has seen, for the end of this process: from
  // now on none can be started. Gives their ids. Any thread, whatever the others are doing.
  static std::vector<std::int32_t> TerminateAll();
  // Level 0 or 1 idle, 2 normal, 3 high, 4 realtime; 0x40, 0x20, 0x80 and 0x100 name the same four. Any other level has
  // no effect, and neither has one that this user may not set.
  void SetPriority(std::uint32_t level) noexcept;

 private:
  void Close() noexcept;

  Process(std::int32_t id, int descriptor, bool isChild, bool ownGroup)
      : id_(id), descriptor_(descriptor), isChild_(isChild), ownGroup_(ownGroup) {}

  std::int32_t id_;
  int descriptor_;
  bool isChild_;
  bool ownGroup_;
  bool terminated_ = false;
  std::optional<std::uint32_t> exitCode_;
};

}  // namespace tlm::platform
