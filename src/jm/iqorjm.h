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

// A parameter that only the reply carries: the callee stores the value, which replaces the caller's.
template <class Value>
struct Out {
  Value& Ref;
};
template <class Value>
Out(Value&) -> Out<Value>;

// The numbers of the operations, as OperationNumber::Hello.
enum class OperationNumber : std::uint32_t {
#define OPERATION(number, name, result, parameters, arguments) name = number,
#define ONE_WAY(number, name, parameters, arguments) name = number,
#include "jm/operations.def"
#undef OPERATION
#undef ONE_WAY
};

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
