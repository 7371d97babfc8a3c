// The client before something that is no honest server.
#include <memory>

#include "tlmctl/tlmctl_fixture.h"

namespace tlm::test {
namespace {
TEST(TlmctlHostile, EndsWithAWordWhateverItIsAnswered) {
  constexpr int kLost = 75, kRefused = 77;
  const std::pair<std::string, int> cases[] = {
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
    auto client = std::async(std::launch::async, [&listener] {
      return RunProgram({BIN_DIRECTORY "/tlmctl", "list", "--server", LocalAddress(listener.Port())});
    });
    {
      RawConnection connection = listener.Accept();
      connection.ReceiveRecord();  // whether anybody answers
      connection.Send(Record(Reply({})));
      connection.ReceiveRecord();
      connection.Send(answer);
    }
    EXPECT_THAT(client.get(), Ends(code, HasSubstr("tlmctl: ")));
  }
}

TEST(TlmctlHostile, IsExaminedToTheEnd) {
  auto listener = std::make_unique<RawListener>();
  const std::string server = LocalAddress(listener->Port());
  auto doctor = std::async(std::launch::async, [&server] {
    return RunProgram({BIN_DIRECTORY "/tlmctl", "--json", "doctor", "--server", server});
  });
  {
    RawConnection connection = listener->Accept();
    connection.ReceiveRecord();
    connection.Send(Record(Reply({})));
    connection.ReceiveRecord();
    listener.reset();
  }
  EXPECT_THAT(doctor.get(), Ends(77, StartsWith(R"({"schema":1,"result":"fault","checks":[{"check":"server")")));
}
}  // namespace
}  // namespace tlm::test
