// Nobody waits for the next look when what he waits for is there.
#include "support/job_client.h"

namespace tlm::test {
namespace {
using namespace std::chrono_literals;

struct Promptness : JobTest {};

TEST_F(Promptness, OfTheEndsOfJobsAndOfWhatFollowsThem) {
  std::uint64_t before = 0;
  EXPECT_LT(TimeOf([&] {
              for (int i = 0; i < 10; ++i) Client.AwaitEnd(before = Submit(Succeed(":"), before));
            }),
            5s);
  const std::uint64_t first = Submit(Succeed("sleep 0.3"));
  std::uint64_t last = first;
  for (int i = 0; i < 10; ++i) last = Submit(Succeed(":"), last);
  EXPECT_LT(TimeOf([&] { Client.Await(last, {Finished}); }), 5s);

  const std::uint64_t queued = SubmitQueued(Succeed(":"));
  Client.StartQueue(1000);
  Client.StartQueue(2);
  EXPECT_LT(TimeOf([&] { Client.Await(queued, {Finished}); }), 5s);

  const auto distribute = [&] { return Client.SubmitJob(NewJob(Succeed(":"), 0, kRunDistributed)); };
  HandleList many;
  EXPECT_LT(TimeOf([&] {
              for (int i = 0; i < 10; ++i) Client.Await(distribute(), {Finished});
              for (int i = 0; i < 10; ++i) many.push_back(distribute());
              for (std::uint64_t job : many) Client.Await(job, {Finished});
            }),
            10s);
}

TEST_F(Promptness, OfReportsIsThatOfTheEnd) {
  std::string attach, succeed;
  const auto escaped = [](const std::string& bytes) {
    std::ostringstream text;
    for (unsigned char byte : bytes) text << "\\x" << std::hex << std::setw(2) << std::setfill('0') << int{byte};
    return text.str();
  };
  attach = escaped(Record(Call(18, U64(0) + Text("do") + Text(Work.Root()))));
  succeed = escaped(Record(Call(21, U64(0))));
  constexpr std::size_t kBeforePid = 4 * (4 + 40);
  for (std::string* call : {&attach, &succeed}) call->replace(kBeforePid, 4 * 8, "$p");
  Server.Home().Write("bin/report",
                      "#!/bin/bash\np=$(printf %016x $$ | sed 's/../\\\\x&/g')\nexec 3<>/dev/tcp/127.0.0.1/" +
                          std::to_string(Server.Port()) + "\nprintf \"" + attach + succeed + "\" >&3\n");
  std::filesystem::permissions(Server.Home().Path("bin/report"), std::filesystem::perms::owner_all);
  for (int round = 0; round < 10; ++round) {
    HandleList jobs;
    for (int i = 0; i < 10; ++i) jobs.push_back(Submit("report"));
    for (std::uint64_t job : jobs) Client.AwaitEnd(job);
    ASSERT_THAT(Client.Statuses(jobs), Each(Finished));
  }
}
}  // namespace
}  // namespace tlm::test
