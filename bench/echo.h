// What a call costs at least: servers that do nothing but answer.
#pragma once

#include <cstdint>
#include <string>

#include "child.h"
#include "connection.h"

namespace tlm::bench {

// A child that serves on a port of its own.
class PortChild {
 public:
  // The function serves the listener and does not return.
  explicit PortChild(const std::function<void(const Listener&)>& serve) : process_([&] { serve(listener_); }) {}
  std::uint16_t Port() const { return listener_.Port(); }
  const Child& Process() const { return process_; }

 private:
  Listener listener_;
  Child process_;
};

// Answers each `callSize` bytes that come with the reply: one thread, one wait for all connections, and of each that is
// ready one receive and one send.
void ServeEcho(const Listener& listener, std::size_t callSize, const std::string& reply);

inline constexpr std::uint32_t kPeerProgram = 0x20000514;  // of those that users may take for themselves

// Answers null calls of kPeerProgram with libtirpc. Built only where that is installed: see HasRpcPeer.
void ServeRpcPeer(int listener);
bool HasRpcPeer();

}  // namespace tlm::bench
