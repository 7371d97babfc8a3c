// Calls of a client whose peer the test plays by hand.
#include "rpc/orpcclient.h"
#include "rpc/orpcerror.h"
#include "support/eventually.h"
#include "support/raw_connection.h"

namespace tlm {
namespace {
using test::RawConnection, test::RawListener, test::Record, test::Reply, test::U32;

constexpr std::uint32_t kProgram = 0x7E57, kOneWay = 31, kTwoWay = 10;

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
};

TEST_F(ClientTest, RepliesOfOneWayCallsAreReadLaterAndNotLookedAt) {
  RawConnection peer = ConnectedPeer();
  for (int i = 0; i < 3; ++i) Client.BeginCall(kOneWay).Flush();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(peer.ReceiveRecord().substr(4), test::Call(kOneWay, "", 0, kProgram).substr(4));
  }
  peer.Send(Record(Reply("", 5)) + Record(Reply("", 3)));
  Client.BeginCall(kOneWay).Flush();  // two replies have arrived: they are drained here
  peer.Send(Record(Reply("", 5)) + Record(Reply("", 5)) + Record(Reply(U32(42), 0, 0xDEAD)));
  EXPECT_EQ(AskedWord(7), 42U) << "only the last reply counts, whatever its transaction id";
}

TEST_F(ClientTest, ALostReplyIsTheInteger0AndLostResultsAreASocketError) {
  {
    RawConnection peer = ConnectedPeer();
    peer.Send(Record(Reply()).substr(0, 20));
    Client.BeginCall(kTwoWay).Flush();
    peer.CloseAbruptly();
  }
  EXPECT_THROW(Client.EndCall(), int);
  {
    RawConnection peer = ConnectedPeer();  // the same object, connected again, starts afresh
    Client.BeginCall(kTwoWay).Flush();
    peer.ReceiveRecord();
    peer.Send(Record(Reply()));
  }
  ORpcIO& results = Client.EndCall();
  EXPECT_THROW(Decoded<std::uint32_t>(results), OrpcSocketError);
}

TEST_F(ClientTest, ACallIsGivenUpAtTheTimeThatWasSet) {
  const RawConnection silent = ConnectedPeer();
  Client.GiveUpAt(std::chrono::steady_clock::now() + std::chrono::milliseconds(20));
  try {
    AskedWord(7);
    FAIL() << "nobody has answered";
  } catch (const OrpcSocketError& error) {
    EXPECT_EQ(error.Number(), platform::kTimedOut);
  }
  Client.GiveUpAt({});
  RawConnection peer = ConnectedPeer();
  peer.Send(Record(Reply(U32(42))));
  EXPECT_EQ(AskedWord(7), 42U);
}

TEST_F(ClientTest, APingFindsOutWhenThePeerHasGone) {
  EXPECT_EQ(Client.Ping(), ORpcClient::State::Closed);
  {
    RawConnection peer = ConnectedPeer();
    EXPECT_EQ(Client.Ping(), ORpcClient::State::Idle);
    peer.Send(Record(Reply()) + Record(Reply(U32(6))));
    EXPECT_EQ(AskedWord(1), 6U) << "the ping's reply is passed over";
  }
  EXPECT_TRUE(test::Eventually([&] { return Client.Ping() == ORpcClient::State::Closed; }));
  EXPECT_THROW(Client.BeginCall(0), OrpcSocketError);
  Client.DrainReplies();
}

TEST_F(ClientTest, AConnectClosesTheFormerConnectionAlsoWhenItFails) {
  RawConnection first = ConnectedPeer(), second = ConnectedPeer();
  EXPECT_TRUE(first.IsClosedByPeer());
  EXPECT_THROW(Client.Connect("127.0.0.1", test::FreePort()), OrpcSocketError);
  EXPECT_TRUE(second.IsClosedByPeer());
  EXPECT_THROW(Client.BeginCall(0), OrpcSocketError);
  EXPECT_THROW(Client.Connect(std::string(300, 'x'), 0), OrpcSocketError);
}
}  // namespace
}  // namespace tlm
