// What of this machine can be reached from outside.
#include <gmock/gmock.h>

#include "platform/socket.h"
#include "support/raw_connection.h"

namespace tlm::platform {
namespace {

TEST(Listening, TellsTheAddressesAtWhichAPortIsOpen) {
  std::uint16_t port = 0;
  {
    const test::RawListener everywhere;
    port = everywhere.Port();
    EXPECT_THAT(ListeningAddresses(port), testing::Optional(testing::ElementsAre(0)));
  }
  EXPECT_THAT(ListeningAddresses(port), testing::Optional(testing::IsEmpty()));
  EXPECT_TRUE(IsOwnAddress(*ParseAddress("127.0.0.1")));
  EXPECT_FALSE(IsOwnAddress(*ParseAddress("192.0.2.1")));
}

}  // namespace
}  // namespace tlm::platform
