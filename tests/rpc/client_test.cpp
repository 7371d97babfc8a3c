// Calls of a client whose peer the test plays by hand.
#include <gtest/gtest.h>

#include "rpc/orpcclient.h"
#include "rpc/orpcerror.h"
#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {

using test::RawConnection;
using test::RawListener;
using test::Record;
using test::Reply;
using test::U32;

constexpr std::uint32_t kProgram = 0x7E57;
constexpr std::uint32_t kOneWay = 31;
constexpr std::uint32_t kTwoWay = 10;

struct ClientTest : ::testing::Test {
  RawListener Listener;
  ORpcClient Client{kProgram, 1, Listener.Port()};

  RawConnection ConnectedPeer() {
    Client.Connect("127.0.0.1", 0);
    return Listener.Accept();
  }
  std::uint32_t AskedWord(std::uint32_t argument) {
    Encode(Client.BeginCall(kTwoWay), argument).Flush();
    return Decoded<std::uint32_t>(Client.EndCall());
  }
  // The number of the socket error that the action raises.
  template <class Action>
  static int SocketError(Action action) {
    try {
      action();
    } catch (const OrpcSocketError& error) {
      return error.Number();
    }
    return -1;
  }
};

std::uint32_t WordAt(const std::string& bytes, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes.at(offset + i));
  return word;
}

TEST_F(ClientTest, RepliesOfOneWayCallsAreReadLaterAndNotLookedAt) {
  RawConnection peer = ConnectedPeer();
  for (int i = 0; i < 3; ++i) Client.BeginCall(kOneWay).Flush();
  const std::uint32_t first = WordAt(peer.ReceiveRecord(), 0);
  for (std::uint32_t i = 1; i < 3; ++i) {
    EXPECT_EQ(peer.ReceiveRecord(), test::Call(kOneWay, "", first + i, kProgram));
  }
  peer.Send(Record(Reply("", 5)) + Record(Reply("", 3)));
  Client.BeginCall(kOneWay).Flush();  // two replies have arrived: they are drained here
  peer.Send(Record(Reply("", 5)) + Record(Reply("", 5)) + Record(Reply(U32(42), 0, 0xDEAD)));
  EXPECT_EQ(AskedWord(7), 42U) << "only the last reply counts, whatever its transaction id";
  peer.ReceiveRecord();
  EXPECT_EQ(peer.ReceiveRecord(), test::Call(kTwoWay, U32(7), first + 4, kProgram));
}

TEST_F(ClientTest, ARefusedCallRaisesItsStatusAndLeavesTheConnectionUsable) {
  RawConnection peer = ConnectedPeer();
  for (std::uint32_t status : {1U, 3U, 5U}) {
    peer.Send(Record(Reply("", status)));
    EXPECT_EQ(SocketError([&] { AskedWord(1); }), static_cast<int>(status));
  }
  peer.Send(Record(U32(1) + U32(1) + U32(9) + U32(0) + U32(0) + U32(5)));
  EXPECT_EQ(SocketError([&] { AskedWord(1); }), 9) << "a reply status comes before an accepted status";
  peer.Send(Record(Reply(U32(8))));
  EXPECT_EQ(AskedWord(1), 8U);
}

TEST_F(ClientTest, ALostReplyIsTheInteger0AndLostResultsAreASocketError) {
  {
    RawConnection peer = ConnectedPeer();
    peer.Send(Record(Reply()).substr(0, 20));
    Client.BeginCall(kTwoWay).Flush();
    peer.CloseAbruptly();
  }
  int raised = -1;
  try {
    Client.EndCall();
  } catch (int number) {
    raised = number;
  }
  EXPECT_EQ(raised, 0);

  {
    RawConnection peer = ConnectedPeer();  // the same object, connected again, starts afresh
    Client.BeginCall(kTwoWay).Flush();
    peer.ReceiveRecord();
    peer.Send(Record(Reply()));
  }
  ORpcIO& results = Client.EndCall();
  EXPECT_EQ(SocketError([&] { Decoded<std::uint32_t>(results); }), platform::kConnectionReset);
}

TEST_F(ClientTest, AReplyThatComesInPiecesIsOneReply) {
  RawConnection peer = ConnectedPeer();
  Encode(Client.BeginCall(kTwoWay), std::uint32_t{1}).Flush();
  std::thread slow([&] {
    for (char byte : Record(Reply(U32(42)))) peer.Send(std::string(1, byte));
  });
  EXPECT_EQ(Decoded<std::uint32_t>(Client.EndCall()), 42U);
  slow.join();
}

// -- pings
TEST_F(ClientTest, APingIsANullCallThatFindsOutWhenThePeerHasGone) {
  EXPECT_EQ(Client.Ping(), ORpcClient::State::Closed);
  {
    RawConnection peer = ConnectedPeer();
    EXPECT_EQ(Client.Ping(), ORpcClient::State::Idle);
    EXPECT_EQ(peer.ReceiveRecord().substr(4), test::Call(0, "", 0, kProgram).substr(4));
    peer.Send(Record(Reply()) + Record(Reply(U32(6))));
    EXPECT_EQ(AskedWord(1), 6U) << "the ping's reply is passed over";
  }
  EXPECT_TRUE(test::Eventually([&] { return Client.Ping() == ORpcClient::State::Closed; }));
  EXPECT_EQ(SocketError([&] { Client.BeginCall(0); }), platform::kNotConnected);
  Client.DrainReplies();
}

// -- connections
TEST_F(ClientTest, ASecondConnectClosesTheFirst) {
  RawConnection first = ConnectedPeer();
  RawConnection second = ConnectedPeer();
  EXPECT_TRUE(first.IsClosedByPeer());
  second.Send(Record(Reply(U32(4))));
  EXPECT_EQ(AskedWord(1), 4U);
}

TEST_F(ClientTest, AConnectThatFailsLeavesNothingToSpeakOn) {
  RawConnection peer = ConnectedPeer();
  std::uint16_t nobody = 0;
  {
    RawListener gone;
    nobody = gone.Port();
  }
  EXPECT_EQ(SocketError([&] { Client.Connect("127.0.0.1", nobody); }), ECONNREFUSED);
  EXPECT_TRUE(peer.IsClosedByPeer());
  EXPECT_EQ(SocketError([&] { Client.BeginCall(0); }), platform::kNotConnected);
  EXPECT_EQ(Client.Ping(), ORpcClient::State::Closed);
}

TEST_F(ClientTest, WithoutAPortOrAHostThereIsNoConnection) {
  ORpcClient portless(kProgram, 1, 0);
  EXPECT_GT(SocketError([&] { portless.Connect("127.0.0.1", 0); }), 0);
  EXPECT_GT(SocketError([&] { Client.Connect(std::string(300, 'x'), 0); }), 0);
  EXPECT_EQ(Client.Ping(), ORpcClient::State::Closed);
}

}  // namespace
}  // namespace tlm
