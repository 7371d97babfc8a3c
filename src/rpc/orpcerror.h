// What breaks a connection, and what breaks a marshalling rule.
#pragma once

#include <cstdint>

#include "rpc/tracesite.h"

namespace tlm {

// A failed connection. The number is the system's socket error, or the status of a refused call: 1, 3 or 5 of a job
// manager, 1 to 5 of others, anything of what does not keep to the rules. The words have gone to the trace before it
// was thrown.
class OrpcSocketError {
 public:
  explicit OrpcSocketError(std::int32_t number) : number_(number) {}
  std::int32_t Number() const { return number_; }

 private:
  std::int32_t number_;
};

// Thrown as plain integers.
inline constexpr int kMarshalError = 255;  // a length over its limit, or a record that ends inside an item
inline constexpr int kReplyLost = 0;       // the connection went while a reply was awaited

// Traces the failure at level 1 under the tag, then throws OrpcSocketError.
[[noreturn]] void RaiseSocketError(const char* tag, int number, TraceSite where = TraceSite::Here());

}  // namespace tlm
