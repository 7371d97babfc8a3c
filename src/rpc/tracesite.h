// Where in the source a trace line comes from: made by a default argument, it names the caller.
#pragma once

namespace tlm {

struct TraceSite {
  const char* File;
  int Line;

  static constexpr TraceSite Here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return {file, line};
  }
};

}  // namespace tlm
