// The server side: one object, run on one thread, that listens, accepts, reads calls, dispatches them and writes the
// replies. The loop is re-entrant: whenever its thread would have to wait for a socket, it runs a further pass from
// inside the wait, so that all other connections go on being served, nested on the same stack.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "rpc/admission.h"
#include "rpc/orpcserver.h"
#include "rpc/orpctrace.h"
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
  void SetAdmission(Admission admission) { admission_ = std::move(admission); }
  // Before Run: from then on a pass happens at least once in the interval, and `beat` runs after one that has been
  // made, no more often than twice in the interval.
  void SetHeartbeat(std::chrono::microseconds interval, std::function<void()> beat);
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
  // One pass: waits until a socket of the sets, a connection or a listener has work, serves one call of the earliest
  // accepted connection that is ready and has none in progress, then accepts. The sets come back with what is ready.
  // Gives the number of ready sockets, below 1 if the wait ended without any.
  int PollOnce(platform::Socket highest, DescriptorSet& readSet, DescriptorSet& writeSet);

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
  using ServersOfConnection = std::map<ORpcProgramKey, std::shared_ptr<ORpcServer>>;
  struct SendQueue {
    std::vector<unsigned char> Bytes;
    std::size_t Sent = 0;  // bytes at the front that have gone
    bool InUse = false;    // a Send further down the stack is working on it
  };

  using Clock = std::chrono::steady_clock;
  void AddToReadSet(platform::Socket& highest, DescriptorSet& readSet);
  void Beat();
  bool ListenersPaused() const;
  std::optional<std::chrono::microseconds> LongestSleep() const;
  void ServeReady(const DescriptorSet& readSet);
  void AcceptReady(const DescriptorSet& readSet);
  bool AcceptOne(platform::Socket listener);
  bool Admits(platform::SocketAddress peer);
  // Has made no call, and has none here that could be begun.
  bool IsMereStranger(platform::Socket socket) const;
  bool WakesForCalls() const { return admission_.FirstCall.count() != 0 || admission_.MostConnections != 0; }
  void DropStrangers();
  void DropStranger(platform::Socket socket, const char* reason);
  void ServeCall(platform::Socket socket);
  void Answer(platform::Socket socket, const CallHeader& call, ORpcIO& stream) REQUIRES(lock_);
  std::shared_ptr<ORpcServer> FindOrCreateServer(platform::Socket socket, ORpcProgramKey key) REQUIRES(lock_);
  void SendQueued(platform::Socket socket, SendQueue& queue, std::size_t length);
  void DropConnection(platform::Socket socket);
  void Forget(platform::Socket socket);
  void CloseAll();

  std::atomic<bool> stop_ = false;
  std::vector<platform::Socket> listeners_;
  Admission admission_;
  std::vector<platform::Socket> connections_;  // in the order of acceptance
  // Those that have made no call yet, each with the time of its acceptance.
  std::unordered_map<platform::Socket, Clock::time_point> strangers_;
  std::unordered_map<platform::Socket, SendQueue> sendQueues_;
  std::map<platform::Socket, ServersOfConnection> servers_ GUARDED_BY(lock_);
  std::unordered_set<platform::Socket> busy_;                         // a call of the connection is on the stack
  std::optional<std::chrono::steady_clock::time_point> acceptAgain_;  // set while accepting is out of resources
  std::function<void()> beat_;
  Clock::duration beatInterval_{};
  Clock::time_point lastBeat_;
  MMutex lock_;
};

}  // namespace tlm
