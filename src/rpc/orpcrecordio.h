// Record marking (RFC 5531, section 11) over another stream, with whole records buffered in both directions. Every
// record that is written carries the last-fragment bit: the end of a message is known only from its content.
#pragma once

#include <vector>

#include "rpc/orpcio.h"

namespace tlm {

// A write that finds this many bytes gathered, mark included, first sends them off. ORPC_PACKET_SIZE sets it, from 4096
// bytes to 1 GiB; it is read once.
std::uint32_t PacketSize();

class ORpcRecordIO : public ORpcIO {
 public:
  // A record that comes has at most so many bytes; 0 for more than any sender makes.
  explicit ORpcRecordIO(std::unique_ptr<ORpcIO> inner, std::uint32_t longest = 0);

  std::uint32_t Write(const void* buffer, std::uint32_t length) override;
  // Serves from the current record only: fewer bytes than asked for when it ends. Fetches the next record when the
  // current one is used up. Throws kMarshalError for a record over the limit.
  std::uint32_t Read(void* buffer, std::uint32_t length) override;
  // Sends the bytes gathered so far as one record; nothing if there are none.
  void Flush() override;
  std::uint32_t Offer(std::uint32_t length) override;
  std::span<const unsigned char> Peek() const override;
  void Skip(std::size_t length) override { next_ += length; }
  std::size_t RoomInRecord() const override;
  unsigned char* Extend(std::size_t length) override;
  void TakeBack(std::size_t length) override { written_ -= length; }

  // From now on takes what has come of later records along, so that a short one costs one Read of the inner stream.
  void ReadAhead() { readsAhead_ = true; }
  // Forgets what is left of the current record. Gives memory back that an ordinary call does not take.
  void EndCall();
  // True if bytes of later records have come already.
  bool HasMore() const { return end_ > ahead_; }

 private:
  void FetchRecord();
  std::uint32_t FetchMark();
  void FetchFragment(std::uint32_t size);
  void Await(std::size_t count);
  void MakeRoom(std::size_t count);

  std::vector<unsigned char> writeBuffer_;  // bytes 0 to 3 are kept for the mark
  std::size_t written_ = 0;                 // bytes at its front, mark included; the others are room
  // In this order: what is used up; up to recordEnd_, what has not been delivered of the current record; a gap where
  // marks have stood; up to end_, what has come behind; room.
  std::vector<unsigned char> readBuffer_;
  std::size_t next_ = 0;
  std::size_t recordEnd_ = 0;
  std::size_t ahead_ = 0;
  std::size_t end_ = 0;
  bool readsAhead_ = false;
  std::unique_ptr<ORpcIO> inner_;
  std::uint32_t longest_;
};

}  // namespace tlm
