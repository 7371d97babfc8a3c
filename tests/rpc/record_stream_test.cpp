// Records and primitive forms over a stream whose bytes the test writes out.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "rpc/orpcerror.h"
#include "rpc/orpcrecordio.h"
#include "rpc/wire.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {

using test::Hex;
using test::Record;
using test::U32;
using test::U64;

constexpr std::uint32_t kPacket = 8192;
constexpr std::uint32_t kLargestRecord = 0x44000000;
// The size is read once, before the first test of this program writes.
const bool kPacketIsSet = (platform::SetVariable("ORPC_PACKET_SIZE", std::to_string(kPacket)), true);

struct Script {
  std::string Input;
  std::vector<std::string> Output;  // one entry for each Write
  std::uint32_t MostAsked = 0;
};

class ScriptedIO : public ORpcIO {
 public:
  explicit ScriptedIO(Script& script) : script_(script) {}
  std::uint32_t Write(const void* buffer, std::uint32_t length) override {
    script_.Output.emplace_back(static_cast<const char*>(buffer), length);
    return length;
  }
  std::uint32_t Read(void* buffer, std::uint32_t length) override {
    script_.MostAsked = std::max(script_.MostAsked, length);
    if (script_.Input.size() < length) throw OrpcSocketError(platform::kConnectionReset);
    std::copy_n(script_.Input.begin(), length, static_cast<char*>(buffer));
    script_.Input.erase(0, length);
    return length;
  }

 private:
  Script& script_;
};

struct RecordStream : ::testing::Test {
  Script Peer;
  ORpcRecordIO Stream{std::make_unique<ScriptedIO>(Peer)};

  std::string Read(std::uint32_t length) {
    std::string bytes(length, '?');
    bytes.resize(Stream.Read(bytes.data(), length));
    return bytes;
  }
  // What reading a value out of the bytes raises, and prints.
  template <class Value>
  int IntegerRaised(const std::string& input, std::string& printed) {
    Script script{input, {}};
    ORpcRecordIO stream(std::make_unique<ScriptedIO>(script));
    ::testing::internal::CaptureStdout();
    int raised = -1;
    try {
      Decoded<Value>(stream);
    } catch (int number) {
      raised = number;
    }
    printed = ::testing::internal::GetCapturedStdout();
    return raised;
  }
};

// -- writing
TEST_F(RecordStream, AWriteThatFindsThePacketFullSendsItFirst) {
  const std::string piece(4096, 'x');
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Stream.Write(piece.data(), 4096), 4096U);
  EXPECT_TRUE(Peer.Output.empty()) << "8196 bytes are gathered, but nothing more was written yet";
  Stream.Write(piece.data(), 4096);
  ASSERT_EQ(Peer.Output.size(), 1U);
  EXPECT_EQ(Peer.Output[0], Record(piece + piece));

  const std::string long_(10 << 20, 'y');
  Stream.Write(long_.data(), 10 << 20);
  Stream.Flush();
  Stream.Flush();
  ASSERT_EQ(Peer.Output.size(), 2U) << "a write is never divided, and nothing is sent twice";
  EXPECT_EQ(Peer.Output[1], Record(piece + long_));
}

TEST_F(RecordStream, WhatWasNotFlushedIsLost) {
  { Encode(*std::make_unique<ORpcRecordIO>(std::make_unique<ScriptedIO>(Peer)), std::uint32_t{1}); }
  EXPECT_TRUE(Peer.Output.empty());
}

// -- reading
TEST_F(RecordStream, FragmentsOfARecordLieSideBySideAndItsEndCutsARead) {
  Peer.Input = U32(3) + "abc" + U32(0) + U32(0x80000005) + "defgh" + Record("next");
  EXPECT_EQ(Read(6), "abcdef");
  EXPECT_EQ(Read(10), "gh");
  EXPECT_EQ(Read(4), "next");
  EXPECT_THROW(Read(1), OrpcSocketError);
}

TEST_F(RecordStream, PromisedBytesTakeNoMemory) {
  Peer.Input = U32(0x80000000 | kLargestRecord) + "abc";
  EXPECT_THROW(Read(1), OrpcSocketError);
  EXPECT_LE(Peer.MostAsked, kPacket);
}

TEST_F(RecordStream, ARecordOverTheLimitIsRefused) {
  const struct {
    std::string Input;
    std::string Printed;
  } cases[] = {
      {U32(0xFFFFFFFF), "ERROR: Fragment size is 2147483647\n"},
      {U32(kLargestRecord + 1), "ERROR: Fragment size is 1140850689\n"},
      {U32(4) + "abcd" + U32(0x80000000 | (kLargestRecord - 3)), "ERROR: Fragment size is 1140850685\n"},
  };
  for (const auto& [input, expected] : cases) {
    std::string printed;
    EXPECT_EQ(IntegerRaised<std::uint32_t>(input, printed), 255);
    EXPECT_EQ(printed, expected);
  }
}

// -- primitive forms
TEST_F(RecordStream, PrimitivesHaveTheirFormsInBothDirections) {
  Encode(Stream, std::uint32_t{0x01020304});
  Encode(Stream, std::int32_t{-2});
  Encode(Stream, std::uint64_t{0x0102030405060708});
  Encode(Stream, std::int64_t{-1});
  Encode(Encode(Stream, true), false);
  Stream.Flush();
  const std::string bytes = Hex("01020304 fffffffe 0102030405060708 ffffffffffffffff 00000001 00000000");
  ASSERT_EQ(Peer.Output, std::vector{Record(bytes)});

  Peer.Input = Record(bytes + U32(7));
  EXPECT_EQ(Decoded<std::uint32_t>(Stream), 0x01020304U);
  EXPECT_EQ(Decoded<std::int32_t>(Stream), -2);
  EXPECT_EQ(Decoded<std::uint64_t>(Stream), 0x0102030405060708U);
  EXPECT_EQ(Decoded<std::int64_t>(Stream), -1);
  EXPECT_TRUE(Decoded<bool>(Stream));
  EXPECT_FALSE(Decoded<bool>(Stream));
  EXPECT_TRUE(Decoded<bool>(Stream)) << "any word but 0";
}

TEST_F(RecordStream, StringsAreFilledUpToWords) {
  const std::pair<std::string, std::string> forms[] = {
      {"", "00000000"},
      {"abcd", "00000004 61626364"},
      {"hello", "00000005 68656c6c6f 000000"},
      {std::string("a\0b", 3), "00000003 610062 00"},
  };
  for (const auto& [text, digits] : forms) {
    Peer.Output.clear();
    Encode(Stream, text);
    Stream.Flush();
    EXPECT_EQ(Peer.Output, std::vector{Record(Hex(digits))}) << text;
    Peer.Input = Record(Hex(digits));
    EXPECT_EQ(Decoded<std::string>(Stream), text);
  }
  Peer.Input = Record(U32(5)) + Record("hello") + Record("???");
  EXPECT_EQ(Decoded<std::string>(Stream), "hello") << "a record may end between any two pieces";
}

TEST_F(RecordStream, AStringEndsAtItsLimitOrWhereItsRecordEnds) {
  std::string printed;
  Peer.Input = Record(U32(kMaxStringLength) + std::string(kMaxStringLength, 'x'));
  EXPECT_EQ(Decoded<std::string>(Stream).size(), kMaxStringLength);
  EXPECT_EQ(IntegerRaised<std::string>(Record(U32(kMaxStringLength + 1) + "x"), printed), 255);
  EXPECT_EQ(printed, "ERROR: string size is 16777217 bytes\n");
  EXPECT_EQ(IntegerRaised<std::string>(Record(U32(0xFFFFFFFF)), printed), 255);
  EXPECT_EQ(printed, "ERROR: string size is -1 bytes\n");

  for (const std::string& cut : {U32(5), U32(5) + "hell", U32(5) + "hello", U32(5) + "hello??"}) {
    EXPECT_EQ(IntegerRaised<std::string>(Record(cut) + Record(""), printed), 255) << cut.size();
  }
}

}  // namespace
}  // namespace tlm
