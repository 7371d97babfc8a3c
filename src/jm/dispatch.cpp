#include "jm/dispatch.h"

#include <algorithm>
#include <array>

namespace tlm {

namespace {

using Server = void (*)(const ServedCall&);

constexpr std::uint32_t kLastOperation = std::max({0U
#define OPERATION(number, name, result, parameters, arguments) \
  , std::uint32_t { number }
#define ONE_WAY(number, name, parameters, arguments) \
  , std::uint32_t { number }
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
});

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

Server FindServer(std::int32_t number) {
  const auto index = static_cast<std::size_t>(number);
  return number >= 0 && index < kServers.size() ? kServers[index] : nullptr;
}

}  // namespace

bool IsOperation(std::int32_t number) { return FindServer(number) != nullptr; }

void DispatchOperation(std::int32_t number, const ServedCall& call) {
  if (const Server serve = FindServer(number)) serve(call);
}

}  // namespace tlm
