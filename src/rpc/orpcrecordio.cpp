#include "rpc/orpcrecordio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "platform/environment.h"
#include "rpc/orpcerror.h"
#include "rpc/wire.h"

namespace tlm {

namespace {

constexpr std::uint32_t kMarkSize = 4;
constexpr std::uint32_t kLastFragment = 0x80000000;
constexpr std::uint32_t kInitialCapacity = 8192;
constexpr std::uint32_t kSmallestPacket = 4096;
constexpr std::uint32_t kDefaultPacket = 0x200000;
// Leaves room in the 31 bits of a mark for the longest write that may follow.
constexpr std::uint32_t kLargestPacket = 0x40000000;
// Memory for a record grows with the bytes that arrive, at most by this at once.
constexpr std::uint32_t kLargestReadPiece = 0x40000;

// No sender makes a longer record, whatever its packet size: a packet and the longest single write behind it, with room
// to spare.
constexpr std::uint32_t kLargestRecord = kLargestPacket + 4 * kMaxStringLength;

// An empty fragment is allowed, a stream of them without an end is not.
constexpr int kMostEmptyFragments = 1000;

[[noreturn]] void RefuseFragment(std::uint32_t size) {
  std::printf("ERROR: Fragment size is %d\n", static_cast<int>(size));
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
    : inner_(std::move(inner)), longest_(longest == 0 ? kLargestRecord : std::min(longest, kLargestRecord)) {
  writeBuffer_.reserve(kInitialCapacity);
  readBuffer_.reserve(kInitialCapacity);
  writeBuffer_.resize(kMarkSize);
}

std::uint32_t ORpcRecordIO::Write(const void* buffer, std::uint32_t length) {
  if (writeBuffer_.size() >= PacketSize()) Flush();
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  writeBuffer_.insert(writeBuffer_.end(), bytes, bytes + length);
  return length;
}

void ORpcRecordIO::Flush() {
  if (writeBuffer_.size() <= kMarkSize) return;
  StoreBigEndian(static_cast<std::uint32_t>(writeBuffer_.size() - kMarkSize) | kLastFragment, writeBuffer_.data());
  inner_->Write(writeBuffer_.data(), static_cast<std::uint32_t>(writeBuffer_.size()));
  writeBuffer_.resize(kMarkSize);
}

std::uint32_t ORpcRecordIO::Read(void* buffer, std::uint32_t length) {
  const std::uint32_t count = Offer(length);
  if (count > 0) std::memcpy(buffer, readBuffer_.data() + readBuffer_.size() - unread_, count);
  unread_ -= count;
  return count;
}

std::uint32_t ORpcRecordIO::Offer(std::uint32_t length) {
  if (unread_ == 0 && length > 0) FetchRecord();
  return std::min(length, unread_);
}

void ORpcRecordIO::FetchRecord() {
  readBuffer_.clear();
  bool last = false;
  int emptyFragments = 0;
  while (!last) {
    unsigned char bytes[kMarkSize];
    inner_->Read(bytes, kMarkSize);
    const std::uint32_t mark = LoadBigEndian<std::uint32_t>(bytes);
    last = (mark & kLastFragment) != 0;
    const std::uint32_t size = mark & ~kLastFragment;
    if (size == 0 && !last && ++emptyFragments > kMostEmptyFragments) RefuseFragment(size);
    ReadFragment(size);
  }
}

void ORpcRecordIO::ReadFragment(std::uint32_t size) {
  if (size > longest_ - unread_) RefuseFragment(size);
  while (size > 0) {
    const std::uint32_t piece = std::min(size, std::clamp(unread_, kInitialCapacity, kLargestReadPiece));
    readBuffer_.resize(readBuffer_.size() + piece);
    inner_->Read(readBuffer_.data() + readBuffer_.size() - piece, piece);
    unread_ += piece;
    size -= piece;
  }
}

}  // namespace tlm
