// The client before something that is no honest server.
#include <gmock/gmock.h>

#include "support/raw_connection.h"
#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {

TEST(TlmctlHostile, EndsWithAWordWhateverItIsAnswered) {
  constexpr int kLost = 75, kRefused = 77;
  const struct {
    std::string Answer;
    int Code;
  } cases[] = {
      {"HTTP/1.1 400 Bad Request\r\n\r\n", kLost},
      {std::string(4096, '\xFF'), kLost},
      {Hex("FFFFFFFF"), kLost},                 // a record of 2 GiB
      {Hex("80000018") + "short", kLost},       // less than was promised
      {Record(Reply(U32(0xFFFFFFFF))), kLost},  // 4 billion handles
      {Record(Reply(U32(1), 1)), kRefused},     // another program's server
      {Record(Reply(U32(0), 5)), kRefused},     // one that fails
  };
  for (const auto& [answer, code] : cases) {
    RawListener listener;
    const auto client = std::async(std::launch::async, [&listener] {
      return RunProgram({BIN_DIRECTORY "/tlmctl", "list", "--server", "127.0.0.1:" + std::to_string(listener.Port())});
    });
    {
      RawConnection connection = listener.Accept();
      connection.ReceiveRecord();
      connection.Send(answer);
    }
    const Finished& end = const_cast<std::future<Finished>&>(client).get();
    EXPECT_EQ(end.ExitCode, code) << end.Output;
    EXPECT_THAT(end.Output, testing::HasSubstr("tlmctl: "));
  }
}

}  // namespace
}  // namespace tlm::test
