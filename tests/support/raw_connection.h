// A TCP connection that knows nothing of the layers under test: its bytes are written out by hand.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace tlm::test {
// Bytes from words of eight hexadecimal digits.
std::string Hex(const std::string& digits);

std::string U32(std::uint32_t value);
std::string U64(std::uint64_t value);
std::string Text(const std::string& value);  // length, bytes, padding

// One record with the last-fragment bit.
std::string Record(const std::string& payload);
// The 40 bytes of a call's header, then the arguments.
std::string Call(std::uint32_t procedure, const std::string& arguments = "", std::uint32_t xid = 0x102,
                 std::uint32_t program = 0x514A4D50, std::uint32_t version = 1);
// The 24 bytes of a reply's header, then the results.
std::string Reply(const std::string& results = "", std::uint32_t acceptedStat = 0, std::uint32_t xid = 0x102);

// HOST:PORT of this machine.
inline std::string LocalAddress(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }
// A port at which nobody listens. No other test is given it while this one runs, nor is it an outgoing connection's.
std::uint16_t FreePort();
// True if somebody accepts connections there.
bool Listens(std::uint16_t port);

// All waits end with a failure of the test, by an exception, after a generous limit.
class RawConnection {
 public:
  explicit RawConnection(std::uint16_t port, const std::string& firstBytes = "");
  RawConnection(RawConnection&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;
  ~RawConnection();

  void Send(const std::string& bytes);
  // Exactly so many bytes.
  std::string Receive(std::size_t length);
  // The payload of the next record, all its fragments.
  std::string ReceiveRecord();
  // Sends the call in one record and gives the payload of the reply's one record.
  std::string Ask(const std::string& call);
  // True once bytes, or the end, have come; false if nothing has within the time.
  bool IsReadableWithin(std::chrono::milliseconds time);
  // True once the server has closed or reset the connection.
  bool IsClosedByPeer();
  void CloseAbruptly();
  int Descriptor() const { return socket_; }

 private:
  friend class RawListener;
  RawConnection() = default;
  int socket_ = -1;
};

// The other side: a peer that is scripted by the test.
class RawListener {
 public:
  RawListener() : RawListener(0) {}
  explicit RawListener(std::uint16_t port);  // 0 stands for any

  std::uint16_t Port() const { return port_; }
  bool HasCallerWithin(std::chrono::milliseconds time) { return socket_.IsReadableWithin(time); }
  RawConnection Accept();

 private:
  RawConnection socket_;
  std::uint16_t port_;
};
}  // namespace tlm::test
