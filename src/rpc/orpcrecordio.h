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

 private:
  void FetchRecord();
  void ReadFragment(std::uint32_t size);

  std::vector<unsigned char> writeBuffer_;  // bytes 0 to 3 are kept for the mark
  std::vector<unsigned char> readBuffer_;
  std::uint32_t unread_ = 0;  // bytes at the end of the read buffer that have not been delivered
  std::unique_ptr<ORpcIO> inner_;
  std::uint32_t longest_;
};

}  // namespace tlm
