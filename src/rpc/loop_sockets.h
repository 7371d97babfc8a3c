// All that a loop waits for, and what is known of it: its connections, its listeners, and the socket for which a call
// in progress waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/poller.h"
#include "rpc/connections.h"

namespace tlm {

using platform::Direction;

// What a call in progress cannot go on without.
struct Waited {
  platform::Socket Socket;
  tlm::Direction Direction;
};

// For the thread of the loop, but Wake.
class LoopSockets {
 public:
  struct Listener {
    platform::Socket Socket;
    bool Ready = false;  // as far as is known: no accept has found it empty since
  };

  // Those that add or watch give false or null on failure, with the error number for LastSocketError.
  bool AddListener(platform::Socket socket);
  std::vector<Listener>& Listeners() { return listeners_; }
  // For a little while nobody is accepted, as after an accept that failed for want of descriptors or memory.
  void PauseListeners();
  void ResumeListeners() { acceptAgain_.reset(); }
  bool ListenersPaused() const { return acceptAgain_ && Clock::now() < *acceptAgain_; }

  Connection* AddConnection(platform::Socket socket);
  tlm::Connections& Connections() { return connections_; }
  const tlm::Connections& Connections() const { return connections_; }
  // A Look ends, too, when this one becomes ready, which is none of the others.
  bool Watch(const Waited& waited) { return poller_.Add(waited.Socket, waited.Direction); }
  // Of this one no Look tells any more, whether it was watched or is a connection.
  void Unwatch(platform::Socket socket) { poller_.Remove(socket); }

  // Waits for something to do, unless there is something already; without a limit for any time. A look may rest upon
  // one of a moment ago if that has found more than has been done, but not one that has to be fresh.
  void Look(const Waited* waited, std::optional<std::chrono::microseconds> limit, bool mustBeFresh);
  // Any thread may call: the Look that is in progress, or else the next one, does not wait.
  void Wake() { poller_.Wake(); }

  // So much time has gone by since a look that others should be seen to, though the caller need not wait.
  bool IsLookDue() const;

  // There is a call to be served, somebody to be accepted, or the socket has become ready.
  bool HasWork(const Waited* waited) const;
  bool HasReadyListener() const { return ReadyListeners() != 0; }
  // A connection is there that its peer has ended, so that it will be closed when it has been served.
  bool HasEndedConnection() const;

  // What a Receive or a Send has moved, of what it was asked for; negative if it failed.
  void NoteReceived(platform::Socket socket, std::int64_t received, std::size_t wanted);
  void NoteSent(platform::Socket socket, std::int64_t sent, std::size_t wanted);
  // For how long the connection has taken so little of its call's reply that it may well have stalled. What this system
  // keeps for a peer, and keeps more of now and then, the peer has not taken.
  std::chrono::steady_clock::duration SlowFor(platform::Socket socket) const;

 private:
  using Clock = std::chrono::steady_clock;

  bool IsReady(const Waited& waited) const;
  void Note(const platform::SocketEvent& event);
  std::string DescribeWait(const Waited* waited) const;
  std::size_t ReadyListeners() const;
  std::size_t CountReady(const Waited* waited) const;

  platform::Poller poller_;
  std::vector<platform::SocketEvent> events_;  // of the last look
  Clock::time_point lastLook_;
  std::vector<Listener> listeners_;
  std::optional<Clock::time_point> acceptAgain_;
  tlm::Connections connections_;
};

}  // namespace tlm
