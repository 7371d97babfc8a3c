// What is measured runs in a process of its own, so that its processor time and its memory can be told from the load's.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <sched.h>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tlm::bench {

using Words = std::vector<std::string>;  // of a command, or NAME=value of an environment

// Throws std::runtime_error with the text.
void Require(bool holds, const std::string& failure);
// The same with the system's reason, for a result of -1.
long Check(long result, const std::string& what);

// Seconds of CLOCK_MONOTONIC.
double Now();

// Starts a program found through PATH, without input, its output thrown away, its environment this one's and then the
// given entries. Gives its process id. Throws if it cannot be started.
pid_t Spawn(const Words& command, const Words& environment = {});
// Spawns it and waits for it. Throws unless it ends with 0.
void Run(const Words& command, const Words& environment = {});

// The path of a program that is found through PATH; empty if there is none.
std::string FindProgram(const std::string& name);

// Makes a directory below that for temporary files; removes it with all that is in it.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  std::filesystem::path operator/(const std::string& name) const { return root_ / name; }
  const std::filesystem::path& Root() const { return root_; }

 private:
  std::filesystem::path root_;
};

// A fork of this process, which has only one thread. It dies with this process, and with its object.
class Child {
 public:
  // The function is not to return as long as the child is wanted; a message of what it throws is printed.
  explicit Child(const std::function<void()>& run);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t Id() const { return pid_; }
  bool IsRunning() const;
  double ProcessorSeconds() const;   // of all its threads, also of those that have ended
  double MainThreadSeconds() const;  // of its first thread
  std::size_t Resident() const;      // bytes
  // The largest Resident() since the last ForgetPeak.
  std::size_t PeakResident() const;
  void ForgetPeak() const;
  // Until it does nothing any more, such as what is left to do for connections that were closed.
  void AwaitRest() const;

 private:
  std::filesystem::path Proc(const std::string& file) const;
  std::size_t StatusBytes(const std::string& name) const;

  pid_t pid_;
};

// While it lives, this process and the first thread of the child share one processor. Without it the system puts two
// that call each other in turn on one processor or on two, as it happens, and that makes more of a difference than what
// they do.
class SharedProcessor {
 public:
  explicit SharedProcessor(const Child& child);
  ~SharedProcessor();
  SharedProcessor(const SharedProcessor&) = delete;
  SharedProcessor& operator=(const SharedProcessor&) = delete;

 private:
  pid_t child_;
  cpu_set_t before_{};
};

}  // namespace tlm::bench
