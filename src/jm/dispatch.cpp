#include "jm/dispatch.h"

#include <array>

namespace tlm {

namespace {

using Server = void (*)(const ServedCall&);

constexpr std::array<Server, kLastOperation + 1> kServers = [] {
  std::array<Server, kLastOperation + 1> servers{};
#define OPERATION(number, name, result, parameters, arguments) \
  servers[number] = &Operation<number, true, &IQorJM::name>::Serve<&IQorJM::name>;
#define ONE_WAY(number, name, parameters, arguments) \
  servers[number] = &Operation<number, false, &IQorJM::name>::Serve<&IQorJM::name>;
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
  return servers;
}();

}  // namespace

void DispatchOperation(std::int32_t number, const ServedCall& call) {
  if (IsOperation(number)) kServers[static_cast<std::size_t>(number)](call);
}

}  // namespace tlm
