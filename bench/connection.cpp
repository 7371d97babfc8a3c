#include "connection.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "child.h"

namespace tlm::bench {

namespace {

constexpr timeval kPatience{.tv_sec = 60, .tv_usec = 0};

int OpenSocket() { return static_cast<int>(Check(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")); }

sockaddr_in Address(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

void SetUp(int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
}

}  // namespace

Connection::Connection(std::uint16_t port) : socket_(OpenSocket()) {
  SetUp(socket_);
  const sockaddr_in address = Address(port);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
  close(std::exchange(socket_, -1));
  Check(-1, "connecting");
}

Connection::Connection(int socket) : socket_(socket) { SetUp(socket_); }

Connection::~Connection() {
  if (socket_ >= 0) close(socket_);
}

void Connection::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    bytes.remove_prefix(
        static_cast<std::size_t>(Check(send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send")));
  }
}

void Connection::Receive(char* buffer, std::size_t length) const {
  while (length > 0) {
    const long count = Check(recv(socket_, buffer, length, MSG_WAITALL), "waiting for a reply");
    Require(count > 0, "the other side has closed the connection");
    buffer += count;
    length -= static_cast<std::size_t>(count);
  }
}

std::size_t Connection::ReceiveSome(char* buffer, std::size_t length) const {
  return static_cast<std::size_t>(Check(recv(socket_, buffer, length, 0), "receiving"));
}

std::string Connection::Call(std::string_view record) const {
  Send(record);
  std::string reply(kMarkSize, '\0');
  Receive(reply.data(), kMarkSize);
  Tape tape(reply);
  const auto mark = Decoded<std::uint32_t>(tape);
  Require(mark >> 31, "a reply comes in fragments");
  const std::size_t length = mark & 0x7FFFFFFF;
  reply.resize(kMarkSize + length);
  Receive(reply.data() + kMarkSize, length);
  return reply;
}

Listener::Listener() : socket_(OpenSocket()) {
  sockaddr_in address = Address(0);
  socklen_t length = sizeof address;
  Check(bind(socket_, reinterpret_cast<const sockaddr*>(&address), length), "bind");
  Check(listen(socket_, SOMAXCONN), "listen");
  Check(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
  port_ = ntohs(address.sin_port);
}

Listener::~Listener() { close(socket_); }

Connection Listener::Accept() const {
  return Connection(static_cast<int>(Check(accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC), "accept")));
}

std::uint16_t FreePort() { return Listener().Port(); }

std::string Record(const std::string& payload) {
  std::string record;
  Tape tape(record);
  Encode(tape, 0x80000000 | static_cast<std::uint32_t>(payload.size()));
  return record + payload;
}

std::string NullCall(std::uint32_t program) {
  std::string payload;
  Tape tape(payload);
  Encode(tape, CallHeader{.Program = program, .Version = 1});
  return Record(payload);
}

std::string NullReply() {
  std::string payload;
  Tape tape(payload);
  Encode(tape, ReplyHeader{});
  return Record(payload);
}

Results::Results(std::string reply) : reply_(std::move(reply)), tape_(reply_, kMarkSize) {
  ReplyHeader header;
  Decode(tape_, header);
  Require(reply_.size() >= kMarkSize + kReplyHeaderSize && header.MsgType == 1 && header.ReplyStat == 0 &&
              header.AcceptedStat == kSuccess,
          "a call has failed with status " + std::to_string(header.AcceptedStat));
}

}  // namespace tlm::bench
