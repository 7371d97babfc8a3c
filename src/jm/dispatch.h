// From the number of an operation to its call.
#pragma once

#include <cstdint>

#include "jm/operation.h"

namespace tlm {

// Reads the arguments, calls the operation, writes header and results. A number that is none of the interface's does
// nothing. Lets all exceptions through; after one of the operation's own nothing has been written.
void DispatchOperation(std::int32_t number, const ServedCall& call);

bool IsOperation(std::int32_t number);

}  // namespace tlm
