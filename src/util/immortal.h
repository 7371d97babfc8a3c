// Objects that live until the process ends, however it ends.
#pragma once

#include <memory>
#include <utility>

namespace tlm {

// Never destroyed: threads that nobody waits for may use it while the process comes to its end.
template <class Object, class... Arguments>
Object& MakeImmortal(Arguments&&... arguments) {
  return *std::make_unique<Object>(std::forward<Arguments>(arguments)...).release();
}

}  // namespace tlm
