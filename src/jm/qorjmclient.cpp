#include "jm/qorjmclient.h"

#include <cstdlib>

#include "jm/operation.h"
#include "libtsenv/product_environment.h"
#include "libtsenv/runtime_identity.h"

namespace tlm {

std::uint16_t JobManagerPort() { return PortSetting(Identity().RUNTIME_JM_ENVIRONMENT_PORT); }

std::uint16_t PortSetting(const std::string& variable) {
  constexpr long kLastReservedPort = 1024;
  const auto text = ProductValue(variable.c_str());
  const long port = text ? std::strtol(text->c_str(), nullptr, 10) : 0;
  return port > kLastReservedPort ? static_cast<std::uint16_t>(port) : DefaultPort();
}

std::uint16_t PeerPort(const std::string& host) {
  std::string name = "TSQOR_JMPORT";
  if (host != "127.0.0.1") name.append("_").append(host);
  return PortSetting(name);
}

#define OPERATION(number, name, result, parameters, arguments) \
  result QorJMClient::name parameters { return Stub<Operation<number, true, &IQorJM::name>>(*this) arguments; }
#define ONE_WAY(number, name, parameters, arguments) \
  void QorJMClient::name parameters { Stub<Operation<number, false, &IQorJM::name>>(*this) arguments; }
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY

}  // namespace tlm
