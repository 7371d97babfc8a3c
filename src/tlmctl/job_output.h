// What a job's programs have written. The server gives it to the job's owner only.
#pragma once

#include <cstdint>
#include <string>

#include "jm/qorjmclient.h"

namespace tlm::ctl {

// An output beyond this cannot be asked for: an offset has 32 bits.
inline constexpr std::uint64_t kLongestOutput = 0xFFFFFFFF;

// One answer's worth, empty at the end of what there is, and at kLongestOutput.
std::string ReadOutputFrom(QorJMClient& client, std::uint64_t handle, std::uint64_t offset);

// The offset at which so many last lines begin. Of a long output not all is read for that.
std::uint64_t OffsetOfLastLines(QorJMClient& client, std::uint64_t handle, std::size_t lines);

}  // namespace tlm::ctl
