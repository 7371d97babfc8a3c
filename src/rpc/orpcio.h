// The one stream that the remote-call layer reads and writes.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/socket.h"

namespace tlm {

// Used by one thread at a time. Failures are raised as OrpcSocketError; the stream cannot be used afterwards.
class ORpcIO {
 public:
  virtual ~ORpcIO() = default;
  // Takes all the bytes; gives their number.
  virtual std::uint32_t Write(const void* buffer, std::uint32_t length) = 0;
  // Gives the number of bytes delivered, at most `length`.
  virtual std::uint32_t Read(void* buffer, std::uint32_t length) = 0;
  virtual void Flush() {}
  // How many bytes the next Read of this length delivers. May have to wait for them. A length that the other side only
  // promised is cut down to what has really come.
  virtual std::uint32_t Offer(std::uint32_t length) { return length; }
};

class ORpcThread;

// Bytes over a non-blocking TCP socket. Both transfer exactly the given length or raise. On the thread of an ORpcThread
// the waits run passes of its loop, so that its other connections go on being served.
class ORpcSockIO : public ORpcIO {
 public:
  // Owns neither; the thread may be null.
  ORpcSockIO(platform::Socket socket, ORpcThread* thread) : socket_(socket), thread_(thread) {}
  std::uint32_t Write(const void* buffer, std::uint32_t length) override;
  std::uint32_t Read(void* buffer, std::uint32_t length) override;

 private:
  void WaitUntilReadable();
  platform::Socket socket_;
  ORpcThread* thread_;
};

// The stream of a client connection, bound to the loop that runs on the calling thread, if one does.
std::unique_ptr<ORpcIO> MakeSocketStream(platform::Socket socket);

}  // namespace tlm
