// Waiting for one of many sockets, at a cost that does not grow with those that are idle.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/socket.h"

namespace tlm::platform {

enum class Direction { Read, Write };

struct SocketEvent {
  Socket Which = -1;
  bool Readable = false;  // bytes, connections or the end have come
  bool Writable = false;  // there is room to send
  bool Ended = false;     // no bytes come behind those that are there; Readable is true, too
  bool Urgent = false;    // some bytes are urgent: a Receive stops short of them though more are there
};

// Tells of a socket when it is added, and from then on only of what is new: that it is readable after a Receive, or an
// AcceptSocket, that found less than it asked for, and that it is writable after a Send that could not take all. So who
// has not come so far does not wait for it. It may tell more often.
class Poller {
 public:
  Poller();
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  // For both directions or for one. False on failure, with the error number for LastSocketError.
  bool Add(Socket socket);
  bool Add(Socket socket, Direction direction);
  // Has to come before the socket is closed: a process that is just being started may still hold it, and what is new
  // with it would be told of the next one with its number.
  void Remove(Socket socket);
  // Waits until something is new; without a limit, which is kept to the millisecond, there is no time-out. The list
  // comes back with all of it, each socket once. Gives the number of events, 0 after the limit or a Wake, -1 on
  // failure.
  int Wait(std::vector<SocketEvent>& events, std::optional<std::chrono::microseconds> limit);
  // Any thread may call: the Wait that is in progress, or else the next one, ends at once.
  void Wake();

 private:
  bool Add(Socket socket, std::uint32_t events);

  int descriptor_;
  int wake_;
};

}  // namespace tlm::platform
