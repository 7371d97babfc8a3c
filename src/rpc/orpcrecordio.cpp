#include "rpc/orpcrecordio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "platform/environment.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "rpc/wire.h"

namespace tlm {

namespace {

constexpr std::uint32_t kMarkSize = 4;
constexpr std::uint32_t kLastFragment = 0x80000000;
constexpr std::uint32_t kInitialCapacity = 8192;
// A stream that has carried more gives the memory back after the call.
constexpr std::size_t kKeptCapacity = 0x10000;
constexpr std::uint32_t kSmallestPacket = 4096;
constexpr std::uint32_t kDefaultPacket = 0x200000;
// Leaves room in the 31 bits of a mark for the longest write that may follow.
constexpr std::uint32_t kLargestPacket = 0x40000000;
// Memory for a record grows with the bytes that arrive, at most by this at once. Nor is more read ahead: others may
// wait until all of it is worked through, however small its pieces.
constexpr std::uint32_t kLargestReadPiece = 0x40000;

// No sender makes a longer record, whatever its packet size: a packet and the longest single write behind it, with room
// to spare.
constexpr std::uint32_t kLargestRecord = kLargestPacket + 4 * kMaxStringLength;

// An empty fragment is allowed, a stream of them without an end is not.
constexpr int kMostEmptyFragments = 1000;

[[noreturn]] void RefuseFragment(std::uint32_t size) {
  if (ORpcOutput()) std::fprintf(ORpcOutput(), "ERROR: Fragment size is %d\n", static_cast<int>(size));
  throw kMarshalError;
}

}  // namespace

std::uint32_t PacketSize() {
  static const std::uint32_t size = [] {
    const std::optional<std::string> text = platform::GetVariable("ORPC_PACKET_SIZE");
    const auto value = static_cast<std::uint32_t>(text ? std::atoi(text->c_str()) : 0);
    return value < kSmallestPacket ? kDefaultPacket : std::min(value, kLargestPacket);
  }();
  return size;
}

ORpcRecordIO::ORpcRecordIO(std::unique_ptr<ORpcIO> inner, std::uint32_t longest)
    : writeBuffer_(kInitialCapacity),
      written_(kMarkSize),
      readBuffer_(kInitialCapacity),
      inner_(std::move(inner)),
      longest_(longest == 0 ? kLargestRecord : std::min(longest, kLargestRecord)) {}

std::uint32_t ORpcRecordIO::Write(const void* buffer, std::uint32_t length) {
  if (written_ >= PacketSize()) Flush();
  if (length != 0) std::memcpy(Extend(length), buffer, length);
  return length;
}

std::size_t ORpcRecordIO::RoomInRecord() const { return written_ < PacketSize() ? PacketSize() - written_ : 0; }

unsigned char* ORpcRecordIO::Extend(std::size_t length) {
  const std::size_t begin = written_;
  if (writeBuffer_.size() - begin < length) writeBuffer_.resize(std::max(begin + length, 2 * writeBuffer_.size()));
  written_ += length;
  return writeBuffer_.data() + begin;
}

void ORpcRecordIO::Flush() {
  if (written_ <= kMarkSize) return;
  StoreBigEndian(static_cast<std::uint32_t>(written_ - kMarkSize) | kLastFragment, writeBuffer_.data());
  inner_->Write(writeBuffer_.data(), static_cast<std::uint32_t>(written_));
  written_ = kMarkSize;
}

std::uint32_t ORpcRecordIO::Read(void* buffer, std::uint32_t length) {
  const std::uint32_t count = Offer(length);
  if (count > 0) std::memcpy(buffer, readBuffer_.data() + next_, count);
  next_ += count;
  return count;
}

std::span<const unsigned char> ORpcRecordIO::Peek() const {
  return std::span(readBuffer_).subspan(next_, recordEnd_ - next_);
}

std::uint32_t ORpcRecordIO::Offer(std::uint32_t length) {
  if (next_ == recordEnd_ && length > 0) FetchRecord();
  return static_cast<std::uint32_t>(std::min<std::size_t>(length, recordEnd_ - next_));
}

void ORpcRecordIO::EndCall() {
  next_ = recordEnd_;
  // What is there of later records is not moved for each of them.
  const std::size_t more = end_ - ahead_;
  if (readBuffer_.size() > std::max(kKeptCapacity, 4 * more)) {
    std::vector<unsigned char> kept(std::max<std::size_t>(more, kInitialCapacity));
    std::memcpy(kept.data(), readBuffer_.data() + ahead_, more);
    readBuffer_ = std::move(kept);
    next_ = recordEnd_ = ahead_ = 0;
    end_ = more;
  }
  if (writeBuffer_.size() > kKeptCapacity) writeBuffer_ = std::vector<unsigned char>(kInitialCapacity);
  written_ = kMarkSize;
}

void ORpcRecordIO::FetchRecord() {
  if (!HasMore()) next_ = recordEnd_ = ahead_ = end_ = 0;
  bool last = false;
  int emptyFragments = 0;
  while (!last) {
    const std::uint32_t mark = FetchMark();
    last = (mark & kLastFragment) != 0;
    const std::uint32_t size = mark & ~kLastFragment;
    if (size == 0 && !last && ++emptyFragments > kMostEmptyFragments) RefuseFragment(size);
    FetchFragment(size);
  }
}

std::uint32_t ORpcRecordIO::FetchMark() {
  Await(kMarkSize);
  const auto mark = LoadBigEndian<std::uint32_t>(readBuffer_.data() + ahead_);
  ahead_ += kMarkSize;
  if (next_ == recordEnd_) next_ = recordEnd_ = ahead_;
  return mark;
}

void ORpcRecordIO::FetchFragment(std::uint32_t size) {
  if (size > longest_ - (recordEnd_ - next_)) RefuseFragment(size);
  while (size > 0) {
    const auto unread = static_cast<std::uint32_t>(recordEnd_ - next_);
    const std::uint32_t piece = std::min(size, std::clamp(unread, kInitialCapacity, kLargestReadPiece));
    Await(piece);
    if (recordEnd_ != ahead_) std::memmove(readBuffer_.data() + recordEnd_, readBuffer_.data() + ahead_, piece);
    recordEnd_ += piece;
    ahead_ += piece;
    size -= piece;
  }
}

// Until so many bytes are there behind those of the record.
void ORpcRecordIO::Await(std::size_t count) {
  const std::size_t there = end_ - ahead_;
  if (there >= count) return;
  const std::size_t least = count - there;
  if (readBuffer_.size() - end_ < least) MakeRoom(least);
  const std::size_t most = readsAhead_ ? readBuffer_.size() - end_ : least;
  end_ += inner_->ReadSome(readBuffer_.data() + end_, static_cast<std::uint32_t>(least),
                           static_cast<std::uint32_t>(std::min<std::size_t>(most, kLargestReadPiece)));
}

void ORpcRecordIO::MakeRoom(std::size_t count) {
  unsigned char* const begin = readBuffer_.data();
  const std::size_t unread = recordEnd_ - next_;
  const std::size_t there = end_ - ahead_;
  std::memmove(begin, begin + next_, unread);
  std::memmove(begin + unread, begin + ahead_, there);
  next_ = 0;
  recordEnd_ = ahead_ = unread;
  end_ = unread + there;
  if (readBuffer_.size() - end_ < count) readBuffer_.resize(end_ + std::max<std::size_t>(count, kInitialCapacity));
}

}  // namespace tlm
