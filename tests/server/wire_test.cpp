// What crosses the wire between a client and the real server, byte by byte.
#include <gmock/gmock.h>

#include "support/eventually.h"
#include "support/server_process.h"

namespace tlm::test {
namespace {
using ::testing::EndsWith, ::testing::HasSubstr;

constexpr std::uint32_t kNull = 0, kHello = 1, kListJobs = 47;

std::string HelloArguments() { return Text("QOR100") + Text("host.example") + U32(0); }

struct WireTest : ::testing::Test {
  ServerProcess Server;
  RawConnection Client{Server.Port()};
};

TEST_F(WireTest, ACallIsAnsweredOrRefusedAndTheConnectionGoesOn) {
  Client.Send(
      Hex("80000028 00000102 00000000 00000002 514A4D50 00000001 00000000 00000000 00000000 00000000 00000000"));
  EXPECT_EQ(Client.Receive(28), Hex("80000018 00000102 00000001 00000000 00000000 00000000 00000000"));
  const std::string odd =
      U32(7) + U32(9) + U32(3) + U32(0x514A4D50) + U32(1) + U32(0) + U32(1) + U32(2) + U32(3) + U32(4);
  EXPECT_EQ(Client.Ask(odd), Reply("", 0, 7)) << "message type, version and authentication are not looked at";
  EXPECT_EQ(Client.Ask(Call(kNull, "", 1, 0x514A4D52)), Reply("", 1, 1));
  EXPECT_THAT(Server.Output(), EndsWith("PROG_UNAVAIL\n"));
  EXPECT_EQ(Client.Ask(Call(kNull, "", 2, 0x514A4D50, 2)), Reply("", 1, 2));
  for (std::uint32_t procedure : {50U, 0xFFFFFFFFU, 0x80000001U}) {
    EXPECT_EQ(Client.Ask(Call(procedure, "????")), Reply("", 3)) << procedure;
    EXPECT_THAT(Server.Output(), EndsWith("PROC_UNAVAIL\n"));
  }
  EXPECT_EQ(Client.Ask(Call(kHello, HelloArguments())), Reply(U32(1)));
}

// -- records
TEST_F(WireTest, RecordsMayEndBetweenAnyTwoPiecesAndFragmentsAnywhere) {
  const std::string call = Call(kHello, HelloArguments());
  std::string pieces;
  for (int word = 0; word < 10; ++word) pieces += Record(call.substr(word * 4, 4));
  for (const char* text : {"QOR100", "host.example"}) {
    const std::string form = Text(text);
    const std::size_t length = std::string(text).size();
    pieces += Record(form.substr(0, 4)) + Record(form.substr(4, length));
    if (length % 4 != 0) pieces += Record(form.substr(4 + length));
  }
  Client.Send(pieces + Record(U32(0)));
  EXPECT_EQ(Client.ReceiveRecord(), Reply(U32(1)));

  std::string fragments;
  for (char byte : call) fragments += U32(1) + byte;
  Client.Send(fragments + U32(0x80000000));
  EXPECT_EQ(Client.ReceiveRecord(), Reply(U32(1)));

  Client.Send(Record(Call(kNull, "left over", 1) + Call(kNull, "", 2)) + Record(Call(50, U32(1), 3)));
  EXPECT_EQ(Client.Receive(28 * 2), Record(Reply("", 0, 1)) + Record(Reply("", 3, 3))) << "the rest is forgotten";
}

TEST(PacketSize, LongRepliesLeaveInRecordsOfThatSize) {
  std::string list = U32(1000);
  for (std::uint64_t handle = 0; handle < 1000; ++handle) list += U64(handle);
  const std::pair<const char*, std::vector<std::size_t>> cases[] = {{"4095", {8028}}, {"4096", {4092, 3936}}};
  for (const auto& [size, expected] : cases) {
    ServerProcess server(Environment{{"ORPC_PACKET_SIZE", size}});
    RawConnection client(server.Port());
    client.Send(Record(Call(kListJobs, list)));
    std::vector<std::size_t> records;
    for (std::size_t got = 0; got < 24 + list.size(); got += records.back()) {
      records.push_back(client.ReceiveRecord().size());
    }
    EXPECT_EQ(records, expected) << size;
  }
}

// -- operations
TEST_F(WireTest, AStringOverTheLimitIsRefusedWithAMessage) {
  constexpr std::uint32_t kClientFileExists = 3;
  EXPECT_EQ(Client.Ask(Call(kClientFileExists, U32(0x1000001))), Reply("", 5));
  EXPECT_THAT(Server.Output(), EndsWith("ERROR: string size is 16777217 bytes\n"));
  EXPECT_EQ(Client.Ask(Call(kClientFileExists, Text(std::string(0x1000000, 'x')))), Reply(U32(0)));
  EXPECT_EQ(Client.Ask(Call(kClientFileExists, U32(5) + "abc")), Reply("", 5)) << "a record that ends in a string";
}

TEST_F(WireTest, NoJobIsTakenBeforeHello) {
  std::string submission;
  for (int i = 0; i < 8; ++i) submission += Text("x");
  submission += U64(0) + U32(1) + U64(0) + U32(0) + U32(0);
  EXPECT_EQ(Client.Ask(Call(2, submission)), Reply("", 5));
  EXPECT_EQ(Client.Ask(Call(kListJobs, U32(0))), Reply(U32(0)));
  EXPECT_EQ(Client.Ask(Call(kHello, HelloArguments())), Reply(U32(1)));
  const std::string accepted = Client.Ask(Call(2, submission));
  ASSERT_EQ(accepted.size(), 32U);
  EXPECT_EQ(Client.Ask(Call(kListJobs, U32(2) + U64(7) + U64(8))),
            Reply(U32(3) + U64(7) + U64(8) + accepted.substr(24)))
      << "the list of the request comes first";
}

std::string TaskBytes(std::uint32_t trueWord) {
  std::string task;
  for (int i = 0; i < 8; ++i) task += Text(std::string(i, 't'));
  task += U64(9) + Text("host") + U32(1) + U32(2) + U64(3) + U32(4) + U32(5) + U32(6) + U64(7) + U64(8) + U64(9);
  return task + U32(10) + U32(11) + U32(12) + U32(trueWord) + U32(0) + U64(13) + U64(14) + U64(15);
}

TEST_F(WireTest, EachOperationHasItsRequestAndItsReply) {
  const std::string none = U64(4);  // a handle, or a process, that nobody has
  const std::string path = Text("/no/such/file");
  const std::string root = Text(Server.Root().Root());
  const std::string list = U32(2) + U64(1) + U64(2);
  const struct {
    std::vector<std::uint32_t> Numbers;
    std::string Arguments;
    std::string Results;
    bool OnlyLength = false;
  } rows[] = {
      {{1}, HelloArguments(), U32(1)},
      {{3}, path, U32(0)},
      {{5}, U32(0), U32(1)},
      {{6}, U64(0), U32(1)},
      {{8, 7}, "", U32(1)},
      {{8}, "", U32(0)},
      {{39}, "", U64(0)},
      {{9}, U32(0), U32(0)},
      {{9}, U32(5), U32(1)},
      {{10}, "", U32(5)},
      {{11}, U32(3), U32(1)},
      {{12}, "", U32(3)},
      {{13, 15, 16, 20, 21, 22, 30}, none, U32(0)},
      {{14}, none + U32(1), U32(0)},
      {{19}, none + U32(50), U32(0)},
      {{23}, none + TaskBytes(7), TaskBytes(1) + U32(0)},
      {{24}, none + U32(0), U32(0) + U32(0)},
      {{26}, U32(0), ""},
      {{28}, U32(0), U32(0)},
      {{28}, U32(7), U32(1)},
      {{27}, "", U32(7)},
      {{25, 29}, "", U32(0)},
      {{31}, U32(1), ""},
      {{32}, none + U32(0), ""},
      {{33}, "", ""},
      {{34}, U64(1) + U32(2), ""},
      {{35, 48}, none, ""},
      {{36}, none + U32(0) + Text("former"), Text("former")},
      {{38}, "", root + U32(604800)},
      {{37}, root + U32(604800), U32(0), true},
      {{40}, U32(1) + Text("TLM_WIRE_TEST") + Text("1"), ""},
      {{41}, path + U32(1) + U32(0), U32(0)},
      {{42}, U32(0), U32(0) + U32(0), true},
      {{43}, U32(0) + U32(0), U32(1)},
      {{44}, none + U32(1) + Text("name"), ""},
      {{45}, U64(0x100000007) + U64(8) + U64(9), ""},
      {{46}, "", U32(1)},
      {{47, 49}, list, list},
      {{18}, U64(0x7FFFFFFF) + Text("program") + Text("/"), U64(0), true},
  };
  for (const auto& [numbers, arguments, results, onlyLength] : rows) {
    for (std::uint32_t number : numbers) {
      RawConnection fresh(Server.Port());
      std::string reply = fresh.Ask(Call(number, arguments));
      ASSERT_EQ(reply.size(), 24 + results.size()) << number;
      if (onlyLength) reply.replace(24, reply.npos, results);
      EXPECT_EQ(reply, Reply(results)) << number;
      EXPECT_EQ(fresh.Ask(Call(kNull)), Reply()) << "nothing but one reply came for " << number;
    }
  }
  const std::string mapped = Client.Ask(Call(4, Text("c:\\work") + Text("")));
  const std::size_t length = 256U * static_cast<unsigned char>(mapped.at(26)) + static_cast<unsigned char>(mapped[27]);
  EXPECT_EQ(mapped.size(), 24 + Text(std::string(length, 'x')).size() + 4) << "a directory and a bool";
  EXPECT_THAT(Server.Output(), HasSubstr("plmjm - QorJMServer::Dispatch - Recieving 7 8 9\n"));
  EXPECT_EQ(Server.Stop(), 0);
}

TEST(LayerTrace, EachLevelShowsMoreAndStandardOutputStandsInForAFile) {
  for (const std::string level : {"0", "1", "2", "3"}) {
    const Sandbox disk;
    const std::string file = disk.Path(level == "3" ? "trace" : "no/such/directory");
    ServerProcess server(Environment{{"ORPC_TRACE", level}, {"ORPC_TRACE_FILE", file}});
    RawConnection(server.Port()).CloseAbruptly();
    RawConnection client(server.Port());
    EXPECT_EQ(client.Ask(Call(3, U32(0xFFFFFFFF))), Reply("", 5));
    const std::string trace = level == "3" ? disk.Read("trace") : server.Output();
    const auto shows = [&trace](const char* text) { return trace.find(text) != trace.npos; };
    EXPECT_EQ(shows(": RpcSockIO::Read::recv ERROR: Connection reset by peer(104)\n"), level >= "1") << level;
    EXPECT_EQ(shows("select("), level >= "2") << level;
    EXPECT_EQ(shows("GetRemotePort("), level == "3") << level;
  }
}
}  // namespace
}  // namespace tlm::test
