// The remote interface that a desktop client may serve on its callback port.
#pragma once

#include <cstdint>
#include <string>

#include "jm/lists.h"
#include "jm/task.h"

namespace tlm {

inline constexpr std::uint32_t kProxyProgram = 0x514A4D52;  // "QJMR"
inline constexpr std::uint32_t kProxyVersion = 1;

class IQorJMProxy {
 public:
#define OPERATION(number, name, result, parameters, arguments) virtual result name parameters = 0;
#define ONE_WAY(number, name, parameters, arguments) virtual void name parameters = 0;
#define CLIENT_ONLY(number, name, parameters, arguments)
#include "jm/proxy_operations.def"
#undef OPERATION
#undef ONE_WAY

 protected:
  ~IQorJMProxy() = default;
};

}  // namespace tlm
