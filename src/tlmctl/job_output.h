// What a job's programs have written. The server gives it to the job's owner only.
#pragma once

#include <cstdint>
#include <string>

#include "jm/qorjmclient.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

// An output beyond this cannot be asked for: an offset has 32 bits.
inline constexpr std::uint64_t kLongestOutput = 0xFFFFFFFF;

// One answer's worth, empty at the end of what there is, and at kLongestOutput.
std::string ReadOutputFrom(QorJMClient& client, std::uint64_t handle, std::uint64_t offset);

// Reads it from some offset on, a piece at a time.
class OutputReader {
 public:
  OutputReader(const Settings& settings, std::uint64_t handle, std::uint64_t offset = 0)
      : settings_(settings), handle_(handle), offset_(offset) {}

  // What comes next, empty if there is nothing yet. With --json a piece ends with a whole character, unless it is the
  // last. Throws Failure if the user interrupts it.
  std::string Next(QorJMClient& client, bool isLast);
  // Of the end of the piece given last.
  std::uint64_t Offset() const { return offset_; }
  // True if no more can be asked for, which the user is told once.
  bool IsAtLimit();

 private:
  const Settings& settings_;
  const std::uint64_t handle_;
  std::uint64_t offset_;
  bool toldOfLimit_ = false;
};

// The offset at which so many last lines begin. Of a long output not all is read for that.
std::uint64_t OffsetOfLastLines(QorJMClient& client, std::uint64_t handle, std::size_t lines);

}  // namespace tlm::ctl
