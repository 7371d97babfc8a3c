// The one stream that the remote-call layer reads and writes.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

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
  // Gives the number of bytes delivered, at least `least` and at most `most`: what comes of itself without a wait.
  virtual std::uint32_t ReadSome(void* buffer, std::uint32_t least, std::uint32_t /*most*/) {
    return Read(buffer, least);
  }
  virtual void Flush() {}
  // How many bytes the next Read of this length delivers. May have to wait for them. A length that the other side only
  // promised is cut down to what has really come.
  virtual std::uint32_t Offer(std::uint32_t length) { return length; }

  // For who moves many pieces, to spare a copy of each; a stream need not have it.
  // What the next reads deliver without a wait, in its place until then, and that so much of it has been read there.
  virtual std::span<const unsigned char> Peek() const { return {}; }
  virtual void Skip(std::size_t /*length*/) {}
  // Behind what is written, how many bytes there are within which a Write may begin that goes into the same record.
  virtual std::size_t RoomInRecord() const { return 0; }
  // Writes so many bytes, if there is room for some, with what is there until it is overwritten, before the next use.
  virtual unsigned char* Extend(std::size_t /*length*/) { return nullptr; }
  // Takes back bytes that Extend has written last.
  virtual void TakeBack(std::size_t /*length*/) {}
};

class ORpcThread;

// Bytes over a non-blocking TCP socket. Both transfer exactly the given length or raise. On the thread of an ORpcThread
// the waits run passes of its loop, so that its other connections go on being served.
class ORpcSockIO : public ORpcIO {
 public:
  // Owns neither; the thread may be null.
  ORpcSockIO(platform::Socket socket, ORpcThread* thread) : socket_(socket), thread_(thread) {}
  // Goes on with another connection of the thread.
  void Attach(platform::Socket socket) { socket_ = socket; }
  std::uint32_t Write(const void* buffer, std::uint32_t length) override;
  std::uint32_t Read(void* buffer, std::uint32_t length) override { return ReadSome(buffer, length, length); }
  std::uint32_t ReadSome(void* buffer, std::uint32_t least, std::uint32_t most) override;

 private:
  void WaitUntilReadable();
  platform::Socket socket_;
  ORpcThread* thread_;
};

// The stream of a client connection, bound to the loop that runs on the calling thread, if one does.
std::unique_ptr<ORpcIO> MakeSocketStream(platform::Socket socket);

}  // namespace tlm
