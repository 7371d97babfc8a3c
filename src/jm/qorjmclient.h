// The caller's side of IQorJM.
#pragma once

#include <cstdint>
#include <string>

#include "jm/iqorjm.h"
#include "rpc/orpcclient.h"

namespace tlm {

// The port of this server: the port variable of the runtime identity if its value is above 1024, else the default port.
std::uint16_t JobManagerPort();
// The same for any port variable.
std::uint16_t PortSetting(const std::string& variable);
// The port of the job manager on a host: TSQOR_JMPORT, for any host but "127.0.0.1" with "_" and the host's name behind
// it, if its value is above 1024; else the default port of this product.
std::uint16_t PeerPort(const std::string& host);

// Each operation is a stub: it runs on its caller's thread, one call at a time, and lets all exceptions of ORpcClient
// through; the connection is unusable after one. Files of a request are read, and those of a reply written, within the
// call.
class QorJMClient : public IQorJM, public ORpcClient {
 public:
  QorJMClient() : ORpcClient(kJobManagerProgram, kJobManagerVersion, JobManagerPort()) {}

#define OPERATION(number, name, result, parameters, arguments) result name parameters override;
#define ONE_WAY(number, name, parameters, arguments) void name parameters override;
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
};

}  // namespace tlm
