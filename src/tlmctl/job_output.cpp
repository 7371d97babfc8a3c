#include "tlmctl/job_output.h"

#include <algorithm>

#include "rpc/wire.h"

namespace tlm::ctl {

namespace {

// Halves the range in which the end lies: an answer from behind it is empty, and one that could have been longer has
// reached it.
std::uint64_t FindEnd(QorJMClient& client, std::uint64_t handle) {
  std::uint64_t end = 0;  // there is output up to here
  std::uint64_t limit = kLongestOutput;
  for (std::uint64_t probe = 0; end < limit; probe = end + (limit - end) / 2) {
    const std::uint64_t length = ReadOutputFrom(client, handle, probe).size();
    if (length == 0) {
      limit = probe;
    } else {
      end = probe + length;
      if (length < kMaxStringLength) break;
    }
  }
  return std::min(end, kLongestOutput);
}

// Where so many last lines begin in the text, if they all do.
std::size_t FindLastLines(const std::string& text, std::size_t lines) {
  std::size_t position = text.ends_with('\n') ? text.size() - 1 : text.size();
  while (lines-- > 0) {
    if (position == 0) return std::string::npos;
    position = text.rfind('\n', position - 1);
    if (position == std::string::npos) return position;
  }
  return position + 1;
}

}  // namespace

std::string ReadOutputFrom(QorJMClient& client, std::uint64_t handle, std::uint64_t offset) {
  std::string text;
  if (offset >= kLongestOutput) return text;
  client.ReadOutput(handle, static_cast<std::uint32_t>(offset), text);
  return text;
}

std::uint64_t OffsetOfLastLines(QorJMClient& client, std::uint64_t handle, std::size_t lines) {
  constexpr std::uint64_t kFirstStep = 64 << 10;
  const std::uint64_t end = FindEnd(client, handle);
  if (lines == 0) return end;
  std::string text;
  for (std::uint64_t start = end, step = kFirstStep; start > 0; step *= 2) {
    const std::uint64_t before = start - std::min(step, start);
    std::string piece;
    while (before + piece.size() < start) {
      const std::string more = ReadOutputFrom(client, handle, before + piece.size());
      if (more.empty()) return before;  // it was written anew meanwhile
      piece += more;
    }
    piece.resize(start - before);
    text.insert(0, piece);
    start = before;
    const std::size_t found = FindLastLines(text, lines);
    if (found != std::string::npos) return start + found;
  }
  return 0;
}

}  // namespace tlm::ctl
