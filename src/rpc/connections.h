// The connections that a loop has accepted, and which of them is to be served next.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/socket.h"
#include "rpc/callstream.h"

namespace tlm {

struct Connection {
  std::uint64_t Number = 0;  // in the order of acceptance
  platform::Socket Socket = -1;
  bool Readable = false;  // as far as is known: no read has found it empty since
  bool Writable = true;   // the same for sending
  bool Ended = false;     // by the peer; what it has sent may still be there
  bool Urgent = false;    // it sends urgent data: a read that ends early has not found it empty
  bool Busy = false;      // a call of it is on the stack
  std::optional<std::chrono::steady_clock::time_point> StrangerSince;  // when it was accepted, up to its first call
  std::size_t Due = 0;  // bytes that the peer had not taken at SlowSince, and those sent since
  std::optional<std::chrono::steady_clock::time_point> SlowSince;
  const ORpcRecordIO* InCall = nullptr;  // the stream of its call on the stack, once there is one
  std::unique_ptr<CallStream> Ahead;     // if there are bytes in it that came behind the last call
};

// References last until the connection is removed.
class Connections {
 public:
  Connection& Add(platform::Socket socket);
  void Remove(Connection& connection);
  // Null if there is none.
  Connection* Find(platform::Socket socket) const;

  // Has to follow a change of Readable, Busy or Ahead. Takes no memory.
  void Changed(Connection& connection);
  // The earliest accepted one that has something to be read and no call in progress; null if there is none.
  Connection* FirstReady() const { return ready_.empty() ? nullptr : ready_.front(); }
  std::size_t ReadyCount() const { return ready_.size(); }

  // In the order of acceptance.
  std::map<std::uint64_t, Connection>& All() { return all_; }
  const std::map<std::uint64_t, Connection>& All() const { return all_; }
  std::size_t Size() const { return all_.size(); }

 private:
  std::uint64_t last_ = 0;
  std::map<std::uint64_t, Connection> all_;
  std::unordered_map<platform::Socket, Connection*> bySocket_;
  std::vector<Connection*> ready_;  // in the order of acceptance
};

}  // namespace tlm
