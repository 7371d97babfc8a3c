#include "echo.h"

#include <array>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unordered_map>

namespace tlm::bench {

namespace {

struct Caller {
  Connection Socket;
  std::size_t Pending = 0;  // bytes of a call that has come in part
};

// False at its end.
bool Answer(Caller& caller, std::size_t callSize, const std::string& reply) {
  static std::array<char, 1 << 16> buffer;
  const std::size_t count = caller.Socket.ReceiveSome(buffer.data(), buffer.size());
  if (count == 0) return false;
  const std::size_t calls = (caller.Pending + count) / callSize;
  caller.Pending = (caller.Pending + count) % callSize;
  if (calls == 1) {
    caller.Socket.Send(reply);
  } else if (calls > 1) {
    std::string replies;
    for (std::size_t i = 0; i < calls; ++i) replies += reply;
    caller.Socket.Send(replies);
  }
  return true;
}

}  // namespace

void ServeEcho(const Listener& listener, std::size_t callSize, const std::string& reply) {
  const auto poll = static_cast<int>(Check(epoll_create1(EPOLL_CLOEXEC), "epoll"));
  const auto add = [poll](int socket) {
    epoll_event event{.events = EPOLLIN, .data = {.fd = socket}};
    Check(epoll_ctl(poll, EPOLL_CTL_ADD, socket, &event), "epoll");
  };
  add(listener.Descriptor());
  std::unordered_map<int, Caller> callers;
  std::array<epoll_event, 256> events;
  while (true) {
    const long count = Check(epoll_wait(poll, events.data(), events.size(), -1), "epoll");
    for (long i = 0; i < count; ++i) {
      const int socket = events[static_cast<std::size_t>(i)].data.fd;
      if (socket == listener.Descriptor()) {
        Connection connection = listener.Accept();
        const int descriptor = connection.Descriptor();
        add(descriptor);
        callers.emplace(descriptor, Caller{std::move(connection)});
      } else if (!Answer(callers.at(socket), callSize, reply)) {
        callers.erase(socket);
      }
    }
  }
}

#ifndef TLM_BENCH_RPC_PEER
void ServeRpcPeer(int) {}
bool HasRpcPeer() { return false; }
#endif

}  // namespace tlm::bench
