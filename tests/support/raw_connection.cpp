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

void LimitWaits(int socket) {
  const timeval limit{kPatience.count(), 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int NewSocket(int type) { return socket(AF_INET, type | SOCK_CLOEXEC, 0); }

// At all addresses of this machine.
bool Bind(int socket, std::uint16_t port) {
  sockaddr_in address = Loopback(port);
  address.sin_addr.s_addr = INADDR_ANY;
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}
}  // namespace

std::uint16_t FreePort() {
  constexpr int kFirst = 20400, kCount = 12300;  // below those of outgoing connections
  static int next = getpid() * 37;
  for (int tries = 0; tries < kCount; ++tries) {
    const auto port = static_cast<std::uint16_t>(kFirst + next++ % kCount);
    const int claim = NewSocket(SOCK_DGRAM), trial = NewSocket(SOCK_STREAM);
    const bool isFree = Bind(claim, port) && Bind(trial, port);
    close(trial);
    if (isFree) return port;  // and the claim stays
    close(claim);
  }
  Fail("no free port");
}

bool Listens(std::uint16_t port) try {
  RawConnection connection(port);
  return true;
} catch (const std::runtime_error&) {
  return false;
}

RawConnection::RawConnection(std::uint16_t port, const std::string& firstBytes) : RawConnection() {
  socket_ = NewSocket(SOCK_STREAM);
  LimitWaits(socket_);
  const sockaddr_in address = Loopback(port);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Fail("connect");
  if (!firstBytes.empty()) Send(firstBytes);
}

RawConnection::~RawConnection() {
  if (socket_ >= 0) close(socket_);
}

void RawConnection::Send(const std::string& bytes) {
  const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (sent != static_cast<ssize_t>(bytes.size())) Fail("send");
}

std::string RawConnection::Receive(std::size_t length) {
  std::string bytes(length, '\0');
  const ssize_t count = recv(socket_, bytes.data(), length, MSG_WAITALL);
  if (count < 0) Fail("recv");
  if (count != static_cast<ssize_t>(length)) throw std::runtime_error("closed by the server, or no answer in time");
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

bool RawConnection::IsReadableWithin(std::chrono::milliseconds time) {
  pollfd entry{socket_, POLLIN, 0};
  return poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

bool RawConnection::IsClosedByPeer() {
  char byte = 0;
  return IsReadableWithin(kPatience) && recv(socket_, &byte, 1, MSG_PEEK) <= 0;
}

void RawConnection::CloseAbruptly() {
  const linger off{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &off, sizeof off);
  close(socket_);
  socket_ = -1;
}

RawListener::RawListener(std::uint16_t port) {
  socket_.socket_ = NewSocket(SOCK_STREAM);
  LimitWaits(socket_.socket_);
  const int reuse = 1;  // by a listener that comes after it
  setsockopt(socket_.socket_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (!Bind(socket_.socket_, port) || listen(socket_.socket_, 10) != 0) Fail("listen");
  if (getsockname(socket_.socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) Fail("getsockname");
  port_ = ntohs(address.sin_port);
}

RawConnection RawListener::Accept() {
  RawConnection connection;
  connection.socket_ = accept4(socket_.socket_, nullptr, nullptr, SOCK_CLOEXEC);
  if (connection.socket_ < 0) Fail("accept");
  LimitWaits(connection.socket_);
  return connection;
}
}  // namespace tlm::test
