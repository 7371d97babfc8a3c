// The real executable, started for a test with a root, a home and a port of its own, and "do" as a program for jobs: it
// runs its words as shell text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/program.h"
#include "support/raw_connection.h"
#include "support/sandbox.h"

namespace tlm::test {
class ServerProcess {
 public:
  // Waits until the server listens. Entries of the environment come on top of the usual ones. An empty command stands
  // for none.
  explicit ServerProcess(const Environment& environment = {}, const std::string& command = "debug",
                         const std::string& executable = TLMJM);
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess();  // kills it, and fails the test if it had ended in a way that was not asked for

  std::uint16_t Port() const { return port_; }
  std::string Address() const { return LocalAddress(port_); }
  int Pid() const { return program_.value().Pid(); }
  // Home of the product: its jobs' programs lie in "bin" below it.
  const Sandbox& Home() const { return home_; }
  // The temporary root.
  const Sandbox& Root() const { return root_; }
  // What it has printed so far, both streams.
  std::string Output() const { return home_.Read("server.log"); }
  bool HasPrinted(const std::string& text) const { return Output().find(text) != std::string::npos; }
  int CountPrinted(const std::string& text) const {
    const std::string output = Output();
    int count = 0;
    for (std::size_t at = 0; (at = output.find(text, at)) != std::string::npos; at += text.size()) ++count;
    return count;
  }
  const Environment& Settings() const { return environment_; }

  // A program that jobs can name.
  void AddProgram(const std::string& name, const std::string& body) const { home_.WriteScript("bin/" + name, body); }

  // Sends Shutdown and gives the exit code.
  int Stop();
  // Waits for the end that something else has brought about.
  int AwaitEnd();
  bool IsRunning() { return program_ && !program_->ExitCode(); }
  void Kill() { program_.reset(); }
  // Largest amount of memory that it has held so far, in bytes; 0 under a sanitizer.
  std::size_t PeakMemory() const;
  std::ptrdiff_t OpenDescriptors() const;

 private:
  Sandbox home_;
  Sandbox root_;
  std::uint16_t port_ = 0;
  Environment environment_;
  std::optional<Program> program_;  // empty once its end was asked for
};
}  // namespace tlm::test
