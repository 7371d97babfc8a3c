// The server side: one object, run on one thread, that listens, accepts, reads calls, dispatches them and writes the
// replies. The loop is re-entrant: whenever its thread would have to wait for a socket, it runs a further pass from
// inside the wait, so that all other connections go on being served, nested on the same stack.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "rpc/doorkeeper.h"
#include "rpc/loop_sockets.h"
#include "rpc/orpcserver.h"
#include "rpc/orpctrace.h"
#include "util/catch_up.h"
#include "util/mmutex.h"

namespace tlm {

// Everything but Stop, IsStopped and DeleteServer is for the thread that calls Run.
class ORpcThread {
 public:
  ORpcThread() = default;
  virtual ~ORpcThread();
  ORpcThread(const ORpcThread&) = delete;
  ORpcThread& operator=(const ORpcThread&) = delete;

  // The loop that runs on the calling thread; null if none does.
  static ORpcThread* Current();

  // Before Run.
  void SetAdmission(Admission admission) { door_.SetAdmission(std::move(admission)); }
  // Before Run: from then on a pass happens at least once in the interval, and `beat` runs after one that has been
  // made, no more often than twice in the interval.
  void SetHeartbeat(std::chrono::microseconds interval, std::function<void()> beat);
  // Before Run: whoever waits there learns when all that had come has been served.
  void SetCatchUp(CatchUp& catchUp) { catchUp_ = &catchUp; }
  // A new listener at the port of a local address in network order, 0 for all of them; port 0 lets the system choose.
  // Raises OrpcSocketError.
  platform::Socket AddListener(std::uint16_t port, std::uint32_t address = 0);
  // Serves until Stop, then closes all connections and listeners.
  void Run();
  // Takes effect when the pass in progress ends; nothing wakes a pass that sleeps. Waits of calls in progress end.
  void Stop() { stop_ = true; }
  bool IsStopped() const { return stop_; }

  // Sends the bytes behind those that wait for the socket already, running passes of the loop while it is full. After
  // Stop nothing is sent any more. Raises OrpcSocketError if the connection fails, stays full for too many attempts,
  // holds others up for too long, or if Stop comes while it is full.
  std::uint32_t Send(platform::Socket socket, const void* buffer, std::uint32_t length);
  // One pass of the loop, for a caller that cannot go on with the socket, one of the loop's connections or another:
  // waits until the socket, a connection or a listener has work, serves one call of the earliest accepted connection
  // that is ready and has none in progress, then accepts. Raises OrpcSocketError after Stop.
  void Await(platform::Socket socket, Direction direction);
  // A caller that reads without having to wait should run a pass before it goes on, so that others are served, too.
  bool IsPassDue() const { return sockets_.IsLookDue(); }
  // What a Receive has moved, of what it was asked for; negative if it failed.
  void NoteReceived(platform::Socket socket, std::int64_t received, std::size_t wanted) {
    sockets_.NoteReceived(socket, received, wanted);
  }

  // True for a wait for the socket that has gone on since then without a byte for too long: for the admission, or while
  // calls of other connections wait below it on the stack. It has to end, so that they can go on.
  bool IsTooLong(platform::Socket socket, std::chrono::steady_clock::time_point since) const;

  // Gives up a connection's server object; the connection stays open, and its next call makes a new one. No effect on
  // an object that is not a connection's.
  void DeleteServer(const ORpcServer* server);

  // Local and peer's port. Raise OrpcSocketError.
  std::uint16_t GetListenerPort(platform::Socket socket);
  std::uint16_t GetRemotePort(platform::Socket socket);

 private:
  using Clock = std::chrono::steady_clock;
  using ServersOfConnection = std::map<ORpcProgramKey, std::shared_ptr<ORpcServer>>;

  struct SendInProgress {
    platform::Socket Socket;
    std::vector<unsigned char> Behind;  // what calls on top of it have to send there
  };

  void Pass(const Waited* waited);
  void TakeRequest();
  bool HasCaughtUp(const Waited* waited) const;
  std::optional<std::chrono::microseconds> LongestSleep() const;
  bool HoldsOthersUp(platform::Socket socket) const;
  void Beat();

  void AcceptReady();
  bool AcceptOne(LoopSockets::Listener& listener);
  void Welcome(platform::Socket socket);
  void Drop(Connection& connection);
  void CloseAll();

  void ServeReady();
  void ServeCall(Connection& connection);
  std::unique_ptr<CallStream> TakeStream(Connection& connection);
  void GiveBack(Connection& connection, std::unique_ptr<CallStream> stream);
  void Answer(platform::Socket socket, const CallHeader& call, ORpcIO& stream) REQUIRES(lock_);
  std::shared_ptr<ORpcServer> FindOrCreateServer(platform::Socket socket, ORpcProgramKey key) REQUIRES(lock_);
  void SendAll(platform::Socket socket, const unsigned char* bytes, std::size_t length);

  std::atomic<bool> stop_ = false;
  LoopSockets sockets_;
  Connections& connections_ = sockets_.Connections();
  Doorkeeper door_{connections_, [this](Connection& connection) { Drop(connection); }};
  std::size_t busy_ = 0;                  // calls on the stack
  std::vector<SendInProgress*> sending_;  // on the stack, the innermost last
  std::vector<std::unique_ptr<CallStream>> spareStreams_;
  std::unordered_map<platform::Socket, ServersOfConnection> servers_ GUARDED_BY(lock_);
  CatchUp* catchUp_ = nullptr;
  std::optional<std::uint64_t> request_;  // of catchUp_, not answered yet
  Clock::time_point requestTaken_;
  std::function<void()> beat_;
  Clock::duration beatInterval_{};
  Clock::time_point lastBeat_;
  MMutex lock_;
};

}  // namespace tlm
