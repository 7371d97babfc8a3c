#include "platform/socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <future>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/thread.h"

namespace tlm::platform {

const int kWouldBlock = EWOULDBLOCK;
const int kConnectionReset = ECONNRESET;
const int kConnectionAborted = ECONNABORTED;
const int kNotConnected = ENOTCONN;
const int kTimedOut = ETIMEDOUT;

namespace {

sockaddr_in ToSystem(SocketAddress address) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = address.Address;
  result.sin_port = htons(address.Port);
  return result;
}

SocketAddress FromSystem(const sockaddr_in& address) { return {address.sin_addr.s_addr, ntohs(address.sin_port)}; }

template <class Query>
std::optional<SocketAddress> AskAddress(Query query, Socket socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (query(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
  return FromSystem(address);
}

template <class Value>
bool SetOption(Socket socket, int level, int option, const Value& value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

void AppendPollEntries(std::vector<pollfd>& entries, const std::vector<Socket>* sockets, short events) {
  if (!sockets) return;
  for (Socket socket : *sockets) entries.push_back({socket, events, 0});
}

// Keeps the sockets whose entries, which begin at `entry`, report something.
void KeepReady(std::vector<Socket>* sockets, const pollfd* entry) {
  if (!sockets) return;
  std::erase_if(*sockets, [&entry](Socket) { return (entry++)->revents == 0; });
}

}  // namespace

int LastSocketError() { return errno; }
void SetLastSocketError(int number) { errno = number; }
bool IsWouldBlock(int number) { return number == EWOULDBLOCK || number == EAGAIN; }
bool IsOutOfResources(int number) {
  return number == EMFILE || number == ENFILE || number == ENOBUFS || number == ENOMEM;
}

Socket OpenTcpSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

void NoticeLoss(Socket socket) {
  constexpr int kIdleSeconds = 15;
  constexpr int kProbeSeconds = 10;
  constexpr int kProbes = 3;
  SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kIdleSeconds);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kProbeSeconds);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kProbes);
  SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, (kIdleSeconds + kProbes * kProbeSeconds) * 1000);
}

bool AllowAddressReuse(Socket socket) { return SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1); }

bool BindToPort(Socket socket, SocketAddress local) {
  const sockaddr_in address = ToSystem(local);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool Listen(Socket socket, int backlog) { return listen(socket, backlog) == 0; }

bool MakeNonBlocking(Socket socket) {
  int on = 1;
  return ioctl(socket, FIONBIO, &on) == 0;
}

bool SetLinger(Socket socket, bool on, int seconds) {
  return SetOption(socket, SOL_SOCKET, SO_LINGER, linger{on ? 1 : 0, seconds});
}

void SendWithoutDelay(Socket socket) { SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1); }

bool Connect(Socket socket, SocketAddress peer, std::optional<std::chrono::milliseconds> limit) {
  if (limit && !MakeNonBlocking(socket)) return false;
  const sockaddr_in address = ToSystem(peer);
  if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
  if (errno != EINTR && errno != EINPROGRESS) return false;
  // It goes on by itself: its outcome is known once the socket can be written.
  pollfd entry{socket, POLLOUT, 0};
  int ready = 0;
  do ready = poll(&entry, 1, limit ? static_cast<int>(std::max(limit->count(), limit->zero().count())) : -1);
  while (ready < 0 && errno == EINTR);
  if (ready == 0) errno = ETIMEDOUT;
  if (ready <= 0) return false;
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
  errno = error;
  return error == 0;
}

Socket AcceptSocket(Socket listener, SocketAddress& peer) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  const Socket socket = accept4(listener, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket >= 0) peer = FromSystem(address);
  return socket;
}

bool ShutdownSocket(Socket socket) { return shutdown(socket, SHUT_RDWR) == 0; }

void CloseSocket(Socket socket) { close(socket); }

std::int64_t Send(Socket socket, const void* data, std::size_t length) {
  ssize_t sent = 0;
  do sent = send(socket, data, length, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent;
}

std::int64_t Receive(Socket socket, void* buffer, std::size_t length) {
  ssize_t received = 0;
  do received = recv(socket, buffer, length, 0);
  while (received < 0 && errno == EINTR);
  return received;
}

std::uint32_t BytesReadable(Socket socket) {
  int bytes = 0;
  return ioctl(socket, FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<std::uint32_t>(bytes) : 0;
}

std::uint32_t BytesQueued(Socket socket) {
  int bytes = 0;
  return ioctl(socket, TIOCOUTQ, &bytes) == 0 && bytes > 0 ? static_cast<std::uint32_t>(bytes) : 0;
}

void WakeFor(Socket socket, int bytes) { SetOption(socket, SOL_SOCKET, SO_RCVLOWAT, bytes); }

std::optional<SocketAddress> LocalAddress(Socket socket) { return AskAddress(getsockname, socket); }
std::optional<SocketAddress> RemoteAddress(Socket socket) { return AskAddress(getpeername, socket); }

std::optional<std::uint32_t> ParseAddress(const std::string& text) {
  const in_addr_t address = inet_addr(text.c_str());
  if (address == INADDR_NONE) return std::nullopt;
  return address;
}

std::uint32_t HostOrder(std::uint32_t address) { return ntohl(address); }

std::string FormatAddress(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = "";
  const in_addr binary{address};
  inet_ntop(AF_INET, &binary, text, sizeof text);
  return text;
}

namespace {

struct HostAnswer {
  std::optional<std::uint32_t> Address;
  int Error = 0;
};

HostAnswer AskForHost(const std::string& name) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(name.c_str(), nullptr, &hints, &found);
  if (failure != 0) return {std::nullopt, failure == EAI_SYSTEM ? errno : EHOSTUNREACH};
  const std::uint32_t address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
  freeaddrinfo(found);
  return {address};
}

HostAnswer AskForHostWithin(std::chrono::microseconds limit, const std::string& name) {
  const auto promise = std::make_shared<std::promise<HostAnswer>>();
  std::future<HostAnswer> answer = promise->get_future();
  if (!StartDetachedThread([promise, name] { promise->set_value(AskForHost(name)); })) return {std::nullopt, EAGAIN};
  if (answer.wait_for(limit) != std::future_status::ready) return {std::nullopt, kTimedOut};
  return answer.get();
}

}  // namespace

std::optional<std::uint32_t> LookUpHost(const std::string& name, std::optional<std::chrono::microseconds> limit) {
  const HostAnswer answer = limit ? AskForHostWithin(*limit, name) : AskForHost(name);
  if (!answer.Address) errno = answer.Error;
  return answer.Address;
}

int WaitForSockets(std::vector<Socket>* readable, std::vector<Socket>* writable,
                   std::optional<std::chrono::microseconds> limit) {
  std::vector<pollfd> entries;
  entries.reserve((readable ? readable->size() : 0) + (writable ? writable->size() : 0));
  AppendPollEntries(entries, readable, POLLIN);
  AppendPollEntries(entries, writable, POLLOUT);

  timespec time{};
  if (limit) {
    time.tv_sec = limit->count() / 1'000'000;
    time.tv_nsec = limit->count() % 1'000'000 * 1000;
  }
  const int ready = ppoll(entries.data(), entries.size(), limit ? &time : nullptr, nullptr);
  if (ready < 0) {
    if (readable) readable->clear();
    if (writable) writable->clear();
    return ready;
  }
  const std::size_t readableCount = readable ? readable->size() : 0;
  KeepReady(readable, entries.data());
  KeepReady(writable, entries.data() + readableCount);
  return ready;
}

}  // namespace tlm::platform
