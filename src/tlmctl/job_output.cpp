#include "tlmctl/job_output.h"

#include <algorithm>

#include "rpc/wire.h"
#include "tlmctl/console.h"
#include "tlmctl/interrupt.h"

namespace tlm::ctl {

namespace {

// Bytes at the end of the text that begin a character in UTF-8 and do not end it.
std::size_t UnfinishedCharacter(const std::string& text) {
  constexpr std::size_t kLongestStart = 3;
  for (std::size_t length = 1; length <= std::min(kLongestStart, text.size()); ++length) {
    const auto byte = static_cast<unsigned char>(text[text.size() - length]);
    if ((byte & 0xC0) == 0x80) continue;
    const std::size_t whole = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
    return whole > length ? length : 0;
  }
  return 0;
}

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

std::string OutputReader::Next(QorJMClient& client, bool isLast) {
  EndIfInterrupted();
  std::string text = ReadOutputFrom(client, handle_, offset_);
  if (settings_.Json && !isLast) text.resize(text.size() - UnfinishedCharacter(text));
  offset_ += text.size();
  return text;
}

bool OutputReader::IsAtLimit() {
  if (offset_ < kLongestOutput) return false;
  if (!toldOfLimit_) {
    Note(settings_,
         "the output goes on beyond 4 GiB, and no more of it can be asked for; all of it stands in a file "
         "STEM_out of the job's directory on the server");
  }
  return toldOfLimit_ = true;
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
