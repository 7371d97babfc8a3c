// nginx as a peer for the transfer of files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "child.h"
#include "connection.h"

namespace tlm::bench {

// nginx in one process, with the directory as its documents, to which PUT may add.
class WebPeer {
 public:
  static bool IsInstalled() { return !FindProgram("nginx").empty(); }
  explicit WebPeer(const std::filesystem::path& documents);

  Connection Connect() const { return Connection(port_); }
  const Child& Process() const { return *process_; }
  std::size_t Idle() const { return idle_; }  // bytes of memory before the first request

 private:
  Scratch scratch_;
  std::uint16_t port_;
  std::optional<Child> process_;
  std::size_t idle_ = 0;
};

// Sends the piece so many times as a document of that name.
void PutDocument(const Connection& connection, const std::string& name, std::string_view piece, std::size_t count);
// Gives the number of bytes that came.
std::size_t GetDocument(const Connection& connection, const std::string& name);

}  // namespace tlm::bench
