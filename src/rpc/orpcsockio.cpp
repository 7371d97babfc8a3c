#include <chrono>

#include "rpc/orpcerror.h"
#include "rpc/orpcio.h"
#include "rpc/orpcrecordio.h"
#include "rpc/orpcthread.h"
#include "rpc/orpctrace.h"

namespace tlm {

namespace {

constexpr std::chrono::seconds kReadWait{5};  // a wait that ends without data is simply repeated

}  // namespace

std::uint32_t ORpcSockIO::ReadSome(void* buffer, std::uint32_t least, std::uint32_t most) {
  auto* const bytes = static_cast<unsigned char*>(buffer);
  std::uint32_t count = 0;
  auto moved = std::chrono::steady_clock::now();
  // A peer that sends faster than it is read would never let its reader wait, and so nobody else be served.
  if (thread_ && thread_->IsPassDue()) WaitUntilReadable();
  while (true) {
    const std::int64_t received = TracedReceive(socket_, bytes + count, most - count);
    const int error = platform::LastSocketError();
    if (thread_) thread_->NoteReceived(socket_, received, most - count);
    if (received > 0) {
      count += static_cast<std::uint32_t>(received);
      if (count >= least) return count;
      moved = std::chrono::steady_clock::now();
    } else if (received == 0) {
      RaiseSocketError("ECONNRESET", platform::kConnectionReset);
    } else if (!platform::IsWouldBlock(error)) {
      RaiseSocketError("RpcSockIO::Read::recv", error);
    } else if (thread_ && thread_->IsTooLong(socket_, moved)) {
      RaiseSocketError("RpcSockIO::Read::recv", platform::kTimedOut);
    }
    WaitUntilReadable();
  }
}

void ORpcSockIO::WaitUntilReadable() {
  if (thread_) return thread_->Await(socket_, Direction::Read);
  DescriptorSet readSet{socket_};
  ORpcTrace(1).Print("select\n");
  TracedSelect(socket_ + 1, &readSet, nullptr, kReadWait);
  ORpcTrace(1).Print(".\n");
}

std::uint32_t ORpcSockIO::Write(const void* buffer, std::uint32_t length) {
  if (thread_) return thread_->Send(socket_, buffer, length);
  const auto* position = static_cast<const unsigned char*>(buffer);
  std::uint32_t remaining = length;
  while (true) {
    const std::int64_t sent = TracedSend(socket_, position, remaining);
    const int error = platform::LastSocketError();
    if (sent == remaining) return length;
    if (sent >= 0) {
      position += sent;
      remaining -= static_cast<std::uint32_t>(sent);
    } else if (!platform::IsWouldBlock(error)) {
      RaiseSocketError("ORpcSockIO::Write::send", error);
    }
    DescriptorSet writeSet{socket_};
    TracedSelect(socket_ + 1, nullptr, &writeSet, std::nullopt);
  }
}

std::unique_ptr<ORpcIO> MakeSocketStream(platform::Socket socket) {
  return std::make_unique<ORpcRecordIO>(std::make_unique<ORpcSockIO>(socket, ORpcThread::Current()));
}

}  // namespace tlm
