// The stream of a call that a loop serves. It outlives the call, so that the next one finds its buffers there.
#pragma once

#include <memory>
#include <utility>

#include "rpc/orpcio.h"
#include "rpc/orpcrecordio.h"

namespace tlm {

class CallStream {
 public:
  // Records that come have at most so many bytes; 0 for more than any sender makes.
  CallStream(ORpcThread* thread, std::uint32_t longest)
      : CallStream(std::make_unique<ORpcSockIO>(platform::Socket{-1}, thread), longest) {}

  // Before the first call of a connection.
  void Attach(platform::Socket socket) { socket_.Attach(socket); }
  ORpcRecordIO& Record() { return record_; }

 private:
  CallStream(std::unique_ptr<ORpcSockIO> socket, std::uint32_t longest)
      : socket_(*socket), record_(std::move(socket), longest) {}

  ORpcSockIO& socket_;
  ORpcRecordIO record_;
};

}  // namespace tlm
