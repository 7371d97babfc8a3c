// The peer for null calls: what the system's own remote calls do with the same 44 and 28 bytes.
#include <rpc/rpc.h>
#include <stdexcept>

#include "echo.h"

namespace tlm::bench {

namespace {

bool_t Nothing(XDR*, ...) { return TRUE; }

void Answer(svc_req*, SVCXPRT* transport) { svc_sendreply(transport, Nothing, nullptr); }

}  // namespace

void ServeRpcPeer(int listener) {
  SVCXPRT* transport = svc_vc_create(listener, 0, 0);
  constexpr int kNoPortMapper = 0;
  if (!transport || !svc_register(transport, kPeerProgram, 1, Answer, kNoPortMapper)) {
    throw std::runtime_error("libtirpc does not serve");
  }
  svc_run();
}

bool HasRpcPeer() { return true; }

}  // namespace tlm::bench
