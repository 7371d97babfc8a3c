#include "platform/poller.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tlm::platform {

namespace {

constexpr std::uint32_t kToRead = EPOLLIN | EPOLLRDHUP | EPOLLPRI;

SocketEvent EventOf(const epoll_event& event) {
  const std::uint32_t what = event.events;
  const bool failed = (what & (EPOLLHUP | EPOLLERR)) != 0;
  const bool ended = failed || (what & EPOLLRDHUP) != 0;
  return {.Which = event.data.fd,
          .Readable = ended || (what & EPOLLIN) != 0,
          .Writable = failed || (what & EPOLLOUT) != 0,
          .Ended = ended,
          .Urgent = (what & EPOLLPRI) != 0};
}

}  // namespace

Poller::Poller() : descriptor_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  Add(wake_, Direction::Read);
}

Poller::~Poller() {
  for (const int descriptor : {descriptor_, wake_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

// Each of them is told, and nobody reads the number that it adds up to.
void Poller::Wake() { eventfd_write(wake_, 1); }

bool Poller::Add(Socket socket) { return Add(socket, kToRead | EPOLLOUT); }

bool Poller::Add(Socket socket, Direction direction) {
  return Add(socket, direction == Direction::Read ? kToRead : std::uint32_t{EPOLLOUT});
}

bool Poller::Add(Socket socket, std::uint32_t events) {
  epoll_event event{};
  event.events = events | EPOLLET;
  event.data.fd = socket;
  if (epoll_ctl(descriptor_, EPOLL_CTL_ADD, socket, &event) == 0) return true;
  return errno == EEXIST && epoll_ctl(descriptor_, EPOLL_CTL_MOD, socket, &event) == 0;
}

void Poller::Remove(Socket socket) { epoll_ctl(descriptor_, EPOLL_CTL_DEL, socket, nullptr); }

int Poller::Wait(std::vector<SocketEvent>& events, std::optional<std::chrono::microseconds> limit) {
  using std::chrono::milliseconds;
  events.clear();
  int pause = limit ? static_cast<int>(std::chrono::duration_cast<milliseconds>(*limit).count()) : -1;
  std::array<epoll_event, 64> batch;
  while (true) {
    const int count = epoll_wait(descriptor_, batch.data(), batch.size(), pause);
    for (int i = 0; i < count; ++i) {
      if (batch[i].data.fd != wake_) events.push_back(EventOf(batch[i]));
    }
    if (count < 0 && events.empty()) return count;
    if (count < static_cast<int>(batch.size())) return static_cast<int>(events.size());
    pause = 0;
  }
}

}  // namespace tlm::platform
