// The caller's side of IQorJMProxy: the connection from the server back to a client.
#pragma once

#include "jm/iqorjmproxy.h"
#include "rpc/orpcclient.h"

namespace tlm {

// Stubs like those of QorJMClient. The server itself only connects and pings, to see whether the client is still there.
class QorJMProxyClient : public IQorJMProxy, public ORpcClient {
 public:
  QorJMProxyClient() : ORpcClient(kProxyProgram, kProxyVersion, 0) {}

#define OPERATION(number, name, result, parameters, arguments) result name parameters override;
#define ONE_WAY(number, name, parameters, arguments) void name parameters override;
#define CLIENT_ONLY(number, name, parameters, arguments) virtual void name parameters;
#include "jm/proxy_operations.def"
#undef OPERATION
#undef ONE_WAY
};

}  // namespace tlm
