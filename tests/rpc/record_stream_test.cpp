// What a stream of records takes from a peer that promises much.
#include <algorithm>
#include <gtest/gtest.h>

#include "rpc/orpcerror.h"
#include "rpc/orpcrecordio.h"
#include "rpc/wire.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {

using test::U32;

constexpr std::uint32_t kLargestRecord = 0x44000000;

// Gives the bytes of its input, and nothing behind them.
struct Promising : ORpcIO {
  explicit Promising(std::string input) : Input(std::move(input)) {}
  std::uint32_t Write(const void*, std::uint32_t length) override { return length; }
  std::uint32_t Read(void* buffer, std::uint32_t length) override {
    EXPECT_LE(length, 1U << 20) << "is asked for as many bytes as memory was made ready for";
    if (Input.size() < length) throw OrpcSocketError(platform::kConnectionReset);
    std::copy_n(Input.begin(), length, static_cast<char*>(buffer));
    Input.erase(0, length);
    return length;
  }
  std::string Input;
};

TEST(RecordStream, PromisedBytesTakeNoMemory) {
  ORpcRecordIO stream(std::make_unique<Promising>(U32(0x80000000 | kLargestRecord) + "abc"));
  EXPECT_THROW(Decoded<std::uint32_t>(stream), OrpcSocketError);
}

TEST(RecordStream, ARecordOverTheLimitIsRefusedAlsoWhenItComesInFragments) {
  for (const std::string& input : {U32(kLargestRecord + 1), U32(4) + "abcd" + U32(0x80000000 | (kLargestRecord - 3))}) {
    ORpcRecordIO stream(std::make_unique<Promising>(input));
    EXPECT_THROW(Decoded<std::uint64_t>(stream), int) << input.size();
  }
}

}  // namespace
}  // namespace tlm
