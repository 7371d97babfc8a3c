// One end of a connection on this machine, with blocking calls: the cheapest that there is for one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "jm/iqorjm.h"
#include "rpc/callheader.h"
#include "tape.h"

namespace tlm::bench {

class Connection {
 public:
  explicit Connection(std::uint16_t port);  // connects
  explicit Connection(int socket);          // takes it over
  Connection(Connection&& other) noexcept : socket_(other.socket_) { other.socket_ = -1; }
  Connection& operator=(Connection&&) = delete;
  ~Connection();

  // Whole or not at all: both throw if the other side has gone or does nothing for a minute.
  void Send(std::string_view bytes) const;
  void Receive(char* buffer, std::size_t length) const;
  // What there is, at least one byte; 0 at the end.
  std::size_t ReceiveSome(char* buffer, std::size_t length) const;

  // Sends it and gives the one record that comes back, mark included.
  std::string Call(std::string_view record) const;

  int Descriptor() const { return socket_; }

 private:
  int socket_;
};

// Listens on a free port of this machine until it is destroyed.
class Listener {
 public:
  Listener();
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  std::uint16_t Port() const { return port_; }
  Connection Accept() const;
  int Descriptor() const { return socket_; }

 private:
  int socket_;
  std::uint16_t port_ = 0;
};

// A port that nobody had a moment ago.
std::uint16_t FreePort();

inline constexpr std::size_t kMarkSize = 4;

// Puts the record mark in front of the payload.
std::string Record(const std::string& payload);
// A null call, 44 bytes, of a program at version 1; and its reply, 28 bytes.
std::string NullCall(std::uint32_t program = kJobManagerProgram);
std::string NullReply();

// The call of an operation, with its arguments in wire order.
template <class... Arguments>
std::string CallOf(OperationNumber operation, const Arguments&... arguments) {
  std::string payload;
  Tape tape(payload);
  Encode(tape, CallHeader{.Program = kJobManagerProgram,
                          .Version = kJobManagerVersion,
                          .Procedure = static_cast<std::uint32_t>(operation)});
  (Encode(tape, arguments), ...);
  return Record(payload);
}

// The results of a reply, to be decoded one after the other. Throws unless it tells of success.
class Results {
 public:
  explicit Results(std::string reply);
  template <class Value>
  Value Take() {
    Value value{};
    Decode(tape_, value);
    return value;
  }

 private:
  std::string reply_;
  Tape tape_;
};

template <class... Arguments>
Results Ask(const Connection& connection, OperationNumber operation, const Arguments&... arguments) {
  return Results(connection.Call(CallOf(operation, arguments...)));
}

}  // namespace tlm::bench
