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
