// The real server, with a root, a home and a port of its own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "child.h"
#include "connection.h"

namespace tlm::bench {

// The tlmjm beside this program. Its queue is stopped.
class Server {
 public:
  Server();   // waits until it listens
  ~Server();  // tells its last words if it has ended by itself
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  std::uint16_t Port() const { return port_; }
  const Child& Process() const { return *process_; }
  // A directory that clients and jobs share.
  std::filesystem::path Directory() const { return scratch_ / "work"; }

  // A connection that has said Hello.
  Connection Greet() const;
  // For the queue, in the shared directory. Its results are those of its name.
  Submission NewJob(const std::string& name, const std::string& command) const;
  // Gives jobs a program under its own name.
  void AddProgram(const std::filesystem::path& path) const;

 private:
  bool Start();

  Scratch scratch_;
  std::uint16_t port_ = 0;
  std::optional<Child> process_;
};

// Throws if the server has no such job, or one that has ended otherwise than Finished.
Task LookAt(const Connection& connection, std::uint64_t job);
// Looks at it without a pause until it has Finished.
void AwaitFinished(const Connection& connection, std::uint64_t job);

}  // namespace tlm::bench
