#include "support/raw_connection.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

#include "support/eventually.h"

namespace tlm::test {

std::string Hex(const std::string& digits) {
  std::string bytes;
  std::istringstream words(digits);
  for (std::string word; words >> word;) bytes += U32(static_cast<std::uint32_t>(std::stoul(word, nullptr, 16)));
  return bytes;
}

std::string U32(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

std::string U64(std::uint64_t value) {
  return U32(static_cast<std::uint32_t>(value >> 32)) + U32(static_cast<std::uint32_t>(value));
}

std::string Text(const std::string& value) {
  std::string bytes = U32(static_cast<std::uint32_t>(value.size())) + value;
  while (bytes.size() % 4 != 0) bytes += '\0';
  return bytes;
}

std::string Record(const std::string& payload) {
  return U32(0x80000000U | static_cast<std::uint32_t>(payload.size())) + payload;
}

std::string Call(std::uint32_t procedure, const std::string& arguments, std::uint32_t xid, std::uint32_t program,
                 std::uint32_t version) {
  return U32(xid) + U32(0) + U32(2) + U32(program) + U32(version) + U32(procedure) + U32(0) + U32(0) + U32(0) + U32(0) +
         arguments;
}

std::string Reply(const std::string& results, std::uint32_t acceptedStat, std::uint32_t xid) {
  return U32(xid) + U32(1) + U32(0) + U32(0) + U32(0) + U32(acceptedStat) + results;
}

namespace {

[[noreturn]] void Fail(const char* what) { throw std::runtime_error(std::string(what) + ": " + std::strerror(errno)); }

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

bool WaitReadable(int socket, std::chrono::milliseconds limit) {
  pollfd entry{socket, POLLIN, 0};
  return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

}  // namespace

RawConnection::RawConnection(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = Loopback(port);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail("connect");
}

RawConnection::RawConnection(RawConnection&& other) noexcept : socket_(other.socket_) { other.socket_ = -1; }

RawConnection::~RawConnection() {
  if (socket_ >= 0) close(socket_);
}

void RawConnection::Send(const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0) Fail("send");
    sent += static_cast<std::size_t>(count);
  }
}

std::string RawConnection::Receive(std::size_t length) {
  std::string bytes(length, '\0');
  for (std::size_t got = 0; got < length;) {
    if (!WaitReadable(socket_, kPatience)) Fail("no answer in time");
    const ssize_t count = recv(socket_, bytes.data() + got, length - got, 0);
    if (count == 0) throw std::runtime_error("closed by the server");
    if (count < 0) Fail("recv");
    got += static_cast<std::size_t>(count);
  }
  return bytes;
}

std::string RawConnection::ReceiveRecord() {
  std::string payload;
  std::uint32_t mark = 0;
  do {
    const std::string bytes = Receive(4);
    std::memcpy(&mark, bytes.data(), 4);
    mark = ntohl(mark);
    payload += Receive(mark & 0x7FFFFFFFU);
  } while ((mark & 0x80000000U) == 0);
  return payload;
}

std::string RawConnection::Ask(const std::string& call) {
  Send(Record(call));
  return ReceiveRecord();
}

bool RawConnection::IsReadableWithin(std::chrono::milliseconds time) { return WaitReadable(socket_, time); }

bool RawConnection::IsClosedByPeer() {
  char byte = 0;
  return WaitReadable(socket_, kPatience) && recv(socket_, &byte, 1, MSG_PEEK) <= 0;
}

void RawConnection::CloseAbruptly() {
  const linger off{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &off, sizeof off);
  close(socket_);
  socket_ = -1;
}

RawListener::RawListener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket_, generic, length) != 0 || listen(socket_, 10) != 0) Fail("listen");
  if (getsockname(socket_, generic, &length) != 0) Fail("getsockname");
  port_ = ntohs(address.sin_port);
}

RawListener::~RawListener() { close(socket_); }

RawConnection RawListener::Accept() {
  if (!WaitReadable(socket_, kPatience)) Fail("nobody connects");
  RawConnection connection;
  connection.socket_ = accept(socket_, nullptr, nullptr);
  if (connection.socket_ < 0) Fail("accept");
  return connection;
}

}  // namespace tlm::test
