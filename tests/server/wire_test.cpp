// What crosses the wire between a client and the real server, byte by byte.
#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "support/eventually.h"
#include "support/raw_connection.h"
#include "support/server_process.h"

namespace tlm::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::uint32_t kNull = 0;
constexpr std::uint32_t kHello = 1;
constexpr std::uint32_t kListJobs = 47;

std::string HelloArguments() { return Text("QOR100") + Text("host.example") + U32(0); }

std::string LastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of('\n');
  return end == std::string::npos ? "" : text.substr(text.rfind('\n', end) + 1);
}

struct WireTest : ::testing::Test {
  ServerProcess Server;
  RawConnection Client{Server.Port()};
};

TEST_F(WireTest, ANullCallIsAnsweredWithABareHeader) {
  Client.Send(
      Hex("80000028 00000102 00000000 00000002 514A4D50 00000001 00000000 00000000 00000000 00000000 00000000"));
  EXPECT_EQ(Client.Receive(28), Hex("80000018 00000102 00000001 00000000 00000000 00000000 00000000"));
  const std::string odd =
      U32(7) + U32(9) + U32(3) + U32(0x514A4D50) + U32(1) + U32(0) + U32(1) + U32(2) + U32(3) + U32(4);
  EXPECT_EQ(Client.Ask(odd), Reply("", 0, 7)) << "message type, version and authentication are not looked at";
}

TEST_F(WireTest, UnknownProgramsAndProceduresAreRefusedAndTheConnectionGoesOn) {
  EXPECT_EQ(Client.Ask(Call(kNull, "", 1, 0x514A4D52)), Reply("", 1, 1));
  EXPECT_EQ(LastLine(Server.Output()), "PROG_UNAVAIL\n");
  EXPECT_EQ(Client.Ask(Call(kNull, "", 2, 0x514A4D50, 2)), Reply("", 1, 2));
  for (std::uint32_t procedure : {50U, 0xFFFFFFFFU, 0x80000001U}) {
    EXPECT_EQ(Client.Ask(Call(procedure, "????")), Reply("", 3)) << procedure;
    EXPECT_EQ(LastLine(Server.Output()), "PROC_UNAVAIL\n");
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
}

TEST_F(WireTest, WhatACallLeavesOfItsRecordIsForgotten) {
  Client.Send(Record(Call(kNull, "left over", 1) + Call(kNull, "", 2)));
  Client.Send(Record(Call(50, U32(1), 3)) + Record(Call(kNull, "", 4)));
  EXPECT_EQ(Client.Receive(28 * 3), Record(Reply("", 0, 1)) + Record(Reply("", 3, 3)) + Record(Reply("", 0, 4)));
}

TEST(PacketSize, LongRepliesLeaveInRecordsOfThatSize) {
  std::string list = U32(1000);
  for (std::uint64_t handle = 0; handle < 1000; ++handle) list += U64(handle);
  const std::pair<const char*, std::vector<std::size_t>> cases[] = {
      {"4095", {8028}}, {"many", {8028}}, {"4096", {4092, 3936}}, {"5000", {4996, 3032}}};
  for (const auto& [size, expected] : cases) {
    ServerProcess server(Environment{{"ORPC_PACKET_SIZE", size}});
    RawConnection client(server.Port());
    client.Send(Record(Call(kListJobs, list)));
    std::string reply;
    std::vector<std::size_t> records;
    while (reply.size() < 24 + list.size()) {
      records.push_back(client.ReceiveRecord().size());
      reply.append(records.back(), ' ');
    }
    EXPECT_EQ(records, expected) << size;
  }
}

// -- operations
TEST_F(WireTest, AStringOverTheLimitIsRefusedWithAMessage) {
  constexpr std::uint32_t kClientFileExists = 3;
  EXPECT_EQ(Client.Ask(Call(kClientFileExists, U32(0x1000001))), Reply("", 5));
  EXPECT_EQ(LastLine(Server.Output()), "ERROR: string size is 16777217 bytes\n");
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
  enum Check { kBytes, kLength };
  const struct {
    std::uint32_t Number;
    std::string Arguments;
    std::string Results;
    Check What = kBytes;
  } rows[] = {
      {1, HelloArguments(), U32(1)},
      {3, path, U32(0)},
      {5, U32(0), U32(1)},
      {6, U64(0), U32(1)},
      {8, "", U32(1)},
      {7, "", U32(1)},
      {8, "", U32(0)},
      {39, "", U64(0)},
      {9, U32(0), U32(0)},
      {9, U32(5), U32(1)},
      {10, "", U32(5)},
      {11, U32(3), U32(1)},
      {12, "", U32(3)},
      {13, none, U32(0)},
      {14, none + U32(1), U32(0)},
      {15, none, U32(0)},
      {16, U64(1), U32(0)},
      {19, none + U32(50), U32(0)},
      {20, none, U32(0)},
      {21, none, U32(0)},
      {22, none, U32(0)},
      {23, none + TaskBytes(7), TaskBytes(1) + U32(0)},
      {24, none + U32(0), U32(0) + U32(0)},
      {25, "", U32(0)},
      {26, U32(0), ""},
      {28, U32(0), U32(0)},
      {28, U32(7), U32(1)},
      {27, "", U32(7)},
      {29, "", U32(0)},
      {30, none, U32(0)},
      {31, U32(1), ""},
      {32, none + U32(0), ""},
      {33, "", ""},
      {34, U64(1) + U32(2), ""},
      {35, none, ""},
      {36, none + U32(0) + Text("former"), Text("former")},
      {38, "", root + U32(604800)},
      {37, root + U32(604800), U32(0), kLength},
      {40, U32(1) + Text("TLM_WIRE_TEST") + Text("1"), ""},
      {41, path + U32(1) + U32(0), U32(0)},
      {42, U32(0), U32(0) + U32(0), kLength},
      {43, U32(0) + U32(0), U32(1)},
      {44, none + U32(1) + Text("name"), ""},
      {45, U64(0x100000007) + U64(8) + U64(9), ""},
      {46, "", U32(1)},
      {47, U32(2) + U64(1) + U64(2), U32(2) + U64(1) + U64(2)},
      {48, none, ""},
      {49, U32(2) + U64(1) + U64(2), U32(2) + U64(1) + U64(2)},
      {18, U64(0x7FFFFFFF) + Text("program") + Text("/"), U64(0), kLength},
  };
  for (const auto& [number, arguments, results, what] : rows) {
    RawConnection fresh(Server.Port());
    std::string reply = fresh.Ask(Call(number, arguments));
    ASSERT_EQ(reply.size(), 24 + results.size()) << number;
    if (what == kLength) reply.replace(24, reply.npos, results);
    EXPECT_EQ(reply, Reply(results)) << number;
    EXPECT_EQ(fresh.Ask(Call(kNull)), Reply()) << "nothing but one reply came for " << number;
  }
  const std::string mapped = Client.Ask(Call(4, Text("c:\\work") + Text("")));
  const std::size_t length =
      static_cast<unsigned char>(mapped.at(27)) + 256U * static_cast<unsigned char>(mapped.at(26));
  EXPECT_EQ(mapped.size(), 24 + Text(std::string(length, 'x')).size() + 4) << "a directory and a bool";
  EXPECT_THAT(Server.Output(), HasSubstr("plmjm - QorJMServer::Dispatch - Recieving 7 8 9\n"));
  EXPECT_EQ(Server.Stop(), 0);
}

// -- the layer's trace
// In a form, # stands for a decimal number, $ for a hexadecimal one, @ for a list of descriptors.
bool HasForm(const std::string& line, const std::string& form) {
  std::size_t at = 0;
  for (char expected : form) {
    std::size_t end = at + 1;
    if (expected == '#' || expected == '$') {
      end = std::min(line.find_first_not_of(expected == '#' ? "0123456789" : "0123456789abcdef", at), line.size());
    } else if (expected == '@') {
      end = line.find(']', at) + 1;
      expected = '[';
    }
    const bool isLiteral = expected != '#' && expected != '$';
    if (at >= line.size() || end <= at || (isLiteral && line[at] != expected)) return false;
    at = end;
  }
  return at == line.size();
}

TEST(LayerTrace, Level3ShowsAllSocketTrafficInItsForms) {
  Sandbox disk;
  ServerProcess server(Environment{{"ORPC_TRACE", "3"}, {"ORPC_TRACE_FILE", disk.Path("trace")}});
  std::string port;
  {
    RawConnection client(server.Port());
    port = std::to_string(client.LocalPort());
    EXPECT_EQ(client.Ask(Call(kNull)), Reply());
  }
  ASSERT_TRUE(Eventually([&] {
    const std::string trace = disk.Read("trace");
    return trace.rfind("close(") != trace.npos && trace.rfind("close(") > trace.find("GetRemotePort(");
  }));
  const std::pair<std::string, int> forms[] = {
      {"orpcthread.cpp(#): socket(...)=#", 1},
      {"orpcthread.cpp(#): select(#,@,@,0,0)=#", 3},
      {"orpcthread.cpp(#): accept(#, 127.0.0.1:" + port + ")=#", 1},
      {"orpcthread.cpp(#): accept(#, 127.0.0.1:#)=#", 2},
      {"orpcsockio.cpp(#): recv(#,$,4)=4", 1},
      {"orpcsockio.cpp(#): recv(#,$,40)=40", 1},
      {"orpcsockio.cpp(#): recv(#,$,4)=0", 1},
      {"orpcthread.cpp(#): GetListenerPort(#)=" + std::to_string(server.Port()), 1},
      {"orpcthread.cpp(#): GetRemotePort(#)=" + port, 1},
      {"orpcthread.cpp(#): send(#,$,28)=28", 1},
      {"orpcsockio.cpp(#): ECONNRESET ERROR: Connection reset by peer(104)", 1},
      {"orpcthread.cpp(#): close(#)", 1},
  };
  const std::string trace = disk.Read("trace");
  std::istringstream text(trace.substr(0, trace.rfind("orpc")));  // the last line may be a select that still waits
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  for (const auto& [form, least] : forms) {
    const auto hasIt = [&form](const std::string& line) { return HasForm(line, form); };
    EXPECT_GE(std::count_if(lines.begin(), lines.end(), hasIt), least) << form << " in\n" << trace;
  }
  for (const std::string& line : lines) {
    const auto isIt = [&line](const auto& form) { return HasForm(line, form.first); };
    EXPECT_TRUE(std::any_of(std::begin(forms), std::end(forms), isIt)) << line;
  }
  EXPECT_THAT(server.Output(), Not(HasSubstr("select(")));
}

TEST(LayerTrace, LowerLevelsShowLessAndStandardOutputStandsInForAFile) {
  for (const std::string level : {"", "0", "1", "2"}) {
    ServerProcess server(Environment{{"ORPC_TRACE", level}, {"ORPC_TRACE_FILE", "/no/such/directory/trace"}});
    RawConnection(server.Port()).CloseAbruptly();
    RawConnection client(server.Port());
    EXPECT_EQ(client.Ask(Call(kNull)), Reply());
    const std::string output = server.Output();
    EXPECT_EQ(output.find(": RpcSockIO::Read::recv ERROR: Connection reset by peer(104)\n") != output.npos,
              level >= "1");
    EXPECT_EQ(output.find("select(") != output.npos, level == "2") << level;
    EXPECT_EQ(output.find("GetRemotePort(") != output.npos, false) << level;
  }
}

TEST(LayerTrace, EachFailureThatAPeerCanBringAboutHasItsLine) {
  ServerProcess server(Environment{{"ORPC_TRACE", "1"}});
  RawConnection client(server.Port());
  EXPECT_EQ(client.Ask(Call(3, U32(0xFFFFFFFF))), Reply("", 5));
  EXPECT_THAT(server.Output(), HasSubstr("Caught Dispatch exception\n"));

  kill(server.Pid(), SIGSTOP);  // so that the call is still there when its sender has gone
  RawConnection gone(server.Port());
  gone.Send(Record(Call(kNull)));
  gone.CloseAbruptly();
  kill(server.Pid(), SIGCONT);
  EXPECT_EQ(client.Ask(Call(kNull)), Reply());
  EXPECT_TRUE(Eventually([&] {
    return server.Output().find(
               ": ORpcThread::GetRemotePort::getpeername ERROR: Transport endpoint is not connected(107)\n") !=
           std::string::npos;
  })) << server.Output();

  const Finished second = RunProgram({TLMJM, "debug"}, server.Settings());
  EXPECT_EQ(second.ExitCode, 0);
  EXPECT_THAT(second.Output, HasSubstr(": ORpcThread::AddListener::bind ERROR: Address already in use(98)\n"
                                       "FATAL ERROR: check that no other Tessarine processes are running\n"));

  Environment nobody = server.Settings();
  nobody["TSQOR_JMPORT"] = std::to_string(FreePort());
  const Finished stop = RunProgram({TLMJM, "stop"}, nobody);
  EXPECT_EQ(stop.ExitCode, 0);
  EXPECT_THAT(stop.Output, HasSubstr(": ORpcClient::Connect::connect ERROR: Connection refused(111)\n"));
}

}  // namespace
}  // namespace tlm::test
