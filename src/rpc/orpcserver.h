// What a connection talks to.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>

#include "rpc/callheader.h"
#include "rpc/orpcio.h"

namespace tlm {

struct ORpcProgramKey {
  std::uint32_t Program = 0;
  std::uint32_t Version = 0;
  auto operator<=>(const ORpcProgramKey&) const = default;
};

// One object per connection and program, made at the first call. All of it runs on the thread of the loop, but
// Abandon, which runs on the thread of ORpcThread::DeleteServer.
class ORpcServer {
 public:
  virtual ~ORpcServer() = default;

  // Reads the arguments from the stream, runs the operation, writes the reply header and the results. OrpcSocketError
  // ends the connection; any other exception becomes a reply with status 5. The caller holds the loop's lock.
  virtual void Dispatch(std::int32_t procedure) = 0;
  virtual bool HasProc(std::int32_t procedure) const = 0;
  // The connection has given the object up. Called once; a call of the object may still be further down the stack, and
  // the object lives until that call has left it.
  virtual void Abandon() {}

  std::uint16_t RemotePort() const { return remotePort_; }
  // True if the peer is on this machine.
  bool IsLocalPeer() const { return isLocalPeer_; }
  std::uint16_t ListenerPort() const { return listenerPort_; }

 protected:
  ORpcIO* stream_ = nullptr;  // of the call in progress, not owned
  ReplyHeader replyHeader_;   // of the reply being prepared

 private:
  friend class ORpcThread;
  std::uint16_t remotePort_ = 0;
  bool isLocalPeer_ = false;
  std::uint16_t listenerPort_ = 0;
};

using ORpcServerFactory = std::function<std::shared_ptr<ORpcServer>()>;

// The process-wide registry, safe to use from any thread. A key that is registered again gets the new factory.
void RegisterServerFactory(ORpcProgramKey key, ORpcServerFactory factory);
// Null if there is no factory for the key.
std::shared_ptr<ORpcServer> CreateServer(ORpcProgramKey key);

}  // namespace tlm
