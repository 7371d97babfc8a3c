#include "record_reader.h"

#include <algorithm>

#include "child.h"
#include "rpc/wire.h"

namespace tlm::bench {

namespace {

constexpr std::size_t kBufferSize = 1 << 18;  // larger ones leave the processor's cache

}  // namespace

RecordReader::RecordReader(const Connection& connection, FileSink& sink)
    : connection_(connection), sink_(sink), buffer_(kBufferSize) {}

bool RecordReader::More() {
  if (unread_.empty()) Refill();
  return !unread_.empty();
}

void RecordReader::Refill() {
  sink_.Settle();
  unread_ = {buffer_.data(), connection_.ReceiveSome(buffer_.data(), buffer_.size())};
}

std::string_view RecordReader::Raw(std::size_t most) {
  Require(More(), "the other side has closed the connection");
  const std::string_view piece = unread_.substr(0, most);
  unread_.remove_prefix(piece.size());
  return piece;
}

std::string_view RecordReader::Payload(std::size_t most) {
  while (inRecord_ == 0) {
    unsigned char mark[kMarkSize];
    for (unsigned char& byte : mark) byte = static_cast<unsigned char>(Raw(1).front());
    inRecord_ = LoadBigEndian<std::uint32_t>(mark) & 0x7FFFFFFF;
  }
  const std::string_view piece = Raw(std::min(most, inRecord_));
  inRecord_ -= piece.size();
  return piece;
}

std::uint32_t RecordReader::Word() {
  unsigned char bytes[4];
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(Payload(1).front());
  return LoadBigEndian<std::uint32_t>(bytes);
}

std::string RecordReader::Text() {
  const std::uint32_t length = Word();
  std::string text;
  while (text.size() < length) text += Payload(length - text.size());
  Skip(PaddingOf(length));
  return text;
}

void RecordReader::Skip(std::size_t length) {
  while (length > 0) length -= Payload(length).size();
}

void RecordReader::Files() {
  for (std::uint32_t count = Word(); count > 0; --count) {
    sink_.Begin(Text());
    Text();
    Require(Word() == 0, "a file comes from its middle on");
    while (const std::uint32_t length = Word()) {
      for (std::size_t left = length; left > 0;) {
        const std::string_view piece = Payload(left);
        sink_.Take(piece);
        left -= piece.size();
      }
      Skip(PaddingOf(length));
    }
    sink_.End();
  }
}

}  // namespace tlm::bench
