// One TCP connection to one remote-call program, and the bookkeeping of the calls on it. It marshals nothing: a stub
// starts a call, writes the arguments, flushes, and for a call that is awaited asks for the reply and reads the
// results. A one-way call ends at the flush; its reply is consumed later. Nothing here reconnects by itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "rpc/callheader.h"
#include "util/mmutex.h"

namespace tlm {

// One call at a time: two threads, or a nested pass of the server loop, may not interleave calls on one object. After a
// failed call the owner disconnects the object or throws it away.
class ORpcClient {
 public:
  enum class State { Closed = 0, Idle = 1, Starting = 2, Waiting = 3 };

  // A default port of 0: the caller names the port at each Connect.
  ORpcClient(std::uint32_t program, std::uint32_t version, std::uint16_t defaultPort);
  virtual ~ORpcClient();
  ORpcClient(const ORpcClient&) = delete;
  ORpcClient& operator=(const ORpcClient&) = delete;

  // Closes an earlier connection first. Port 0 means the default port. Takes as long as the system lets it, unless
  // GiveUpAt says else. Raises OrpcSocketError.
  void Connect(const std::string& host, std::uint16_t port) EXCLUDES(lock_);
  void Connect(std::uint32_t address, std::uint16_t port) EXCLUDES(lock_);  // IPv4, network order
  void Disconnect();
  // Ends the waits of calls that are further down the stack, like a loss of the connection. The socket stays open until
  // they have left: its number must not become another connection's before.
  void Interrupt();

  // From now on a peer whose machine has gone is noticed within a minute, also by a call that waits for its reply.
  void NoticeLoss();

  // Until it is called again: what waits for the other side, Connect or a call whose reply has not begun to come,
  // raises OrpcSocketError with kTimedOut then. Without a time it goes on waiting.
  void GiveUpAt(std::optional<std::chrono::steady_clock::time_point> time);

  // The stream, to be written. Raises OrpcSocketError, also when there is no connection.
  ORpcIO& BeginCall(std::uint32_t procedure);
  // Waits for the reply without a limit. The stream, positioned on the results. Throws kReplyLost if the connection
  // goes meanwhile, and raises OrpcSocketError with the status of a call that was refused.
  ORpcIO& EndCall();
  // Reads the replies of one-way calls that have arrived.
  void DrainReplies();
  // Sends a null call without waiting for its reply. Closed means that the connection is gone.
  State Ping();

 private:
  void MakeSocket() REQUIRES(lock_);
  void ReadReplies() REQUIRES(lock_);
  std::optional<std::chrono::milliseconds> TimeLeft() const REQUIRES(lock_);
  void AwaitReply() REQUIRES(lock_);

  platform::Socket socket_ = -1;  // negative when there is none
  std::unique_ptr<ORpcIO> stream_;
  CallHeader callHeader_;
  std::uint16_t defaultPort_;
  State state_ = State::Closed;
  std::int32_t outstanding_ = 0;  // calls sent whose reply header has not been read
  ReplyHeader lastReply_;
  std::optional<std::chrono::steady_clock::time_point> giveUpAt_;
  MMutex lock_;
};

}  // namespace tlm
