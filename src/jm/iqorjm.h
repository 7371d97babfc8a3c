// The remote interface of the job manager.
#pragma once

#include <cstdint>
#include <string>

#include "jm/file_transfer.h"
#include "jm/lists.h"
#include "jm/task.h"

namespace tlm {

inline constexpr std::uint32_t kJobManagerProgram = 0x514A4D50;  // "QJMP"
inline constexpr std::uint32_t kJobManagerVersion = 1;
inline constexpr std::int32_t kLastOperation = 49;

// A parameter that only the reply carries: the callee stores the value, which replaces the caller's.
template <class Value>
struct Out {
  Value& Ref;
};
template <class Value>
Out(Value&) -> Out<Value>;

class IQorJM {
 public:
  virtual ~IQorJM() = default;

#define OPERATION(number, name, result, parameters, arguments) virtual result name parameters = 0;
#define ONE_WAY(number, name, parameters, arguments) virtual void name parameters = 0;
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
};

}  // namespace tlm
