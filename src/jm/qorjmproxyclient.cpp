#include "jm/qorjmproxyclient.h"

#include "jm/operation.h"

namespace tlm {

#define OPERATION(number, name, result, parameters, arguments)                      \
  result QorJMProxyClient::name parameters {                                        \
    return Stub<Operation<number, true, &QorJMProxyClient::name>>(*this) arguments; \
  }
#define ONE_WAY(number, name, parameters, arguments) \
  void QorJMProxyClient::name parameters { Stub<Operation<number, false, &QorJMProxyClient::name>>(*this) arguments; }
#include "jm/proxy_operations.def"
#undef OPERATION
#undef ONE_WAY

}  // namespace tlm
