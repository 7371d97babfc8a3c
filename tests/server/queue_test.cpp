// Which jobs start when: the queue, its limit and its start time.
#include "support/job_client.h"

namespace tlm::test {
namespace {
struct Queue : JobTest {
  const std::string Waiter = Succeed(Wait("pid"));
};

TEST_F(Queue, StartsAsManyAsItsLimitAllowsWhileJobsOfTheOtherClassAlwaysStart) {
  EXPECT_EQ(Client.GetQueueLimit(), std::thread::hardware_concurrency() > 1 ? 2U : 1U);
  EXPECT_FALSE(Client.SetQueueLimit(0));
  EXPECT_TRUE(Client.SetQueueLimit(1));
  const HandleList queued{SubmitQueued(Waiter), SubmitQueued(Waiter), SubmitQueued(Waiter)};
  const HandleList atOnce{Submit(Waiter), Submit(Waiter)};
  for (std::uint64_t handle : atOnce) Client.Await(handle, {Running});
  EXPECT_FALSE(Client.IsQueueRunning());
  EXPECT_EQ(Client.GetJobCount(), 2U);

  EXPECT_TRUE(Client.StartQueue(0));
  EXPECT_TRUE(Client.IsQueueRunning());
  EXPECT_THAT(Client.Statuses(queued), Each(Queued)) << "two jobs run already, and the limit is one";
  EXPECT_TRUE(Client.SetQueueLimit(4));
  for (std::size_t first : {0U, 1U}) Client.Await(queued[first], {Running});
  EXPECT_EQ(Client.GetJobCount(), 4U);
  EXPECT_EQ(Client.Get(queued[2]).Status, std::uint32_t{Queued});

  EXPECT_TRUE(Client.StopQueue());
  EXPECT_FALSE(Client.StopQueue());
  Work.Write("stop");
  for (std::uint64_t handle : {atOnce[0], atOnce[1], queued[0], queued[1]}) Client.Await(handle, {Finished});
  EXPECT_EQ(Client.GetJobCount(), 0U);
  EXPECT_EQ(Client.Get(queued[2]).Status, std::uint32_t{Queued}) << "the queue does not run";
  EXPECT_TRUE(Client.StartQueue(0));
  Client.Await(queued[2], {Finished});
  EXPECT_TRUE(Eventually([&] { return !Client.IsQueueRunning(); })) << "stops by itself when it has run empty";
}

TEST_F(Queue, CanBeStartedLater) {
  EXPECT_EQ(Client.GetQueueStartTime(), 0U);
  const auto now = [] { return static_cast<std::uint64_t>(std::time(nullptr)); };
  const std::uint64_t before = now();
  EXPECT_TRUE(Client.StartQueue(1000));
  EXPECT_GE(Client.GetQueueStartTime(), before + 1000);
  EXPECT_LE(Client.GetQueueStartTime(), now() + 1000);
  EXPECT_TRUE(Client.StartQueue(~std::uint64_t{0}));
  EXPECT_EQ(Client.GetQueueStartTime(), 0U);
  EXPECT_FALSE(Client.IsQueueRunning());

  const std::uint64_t job = SubmitQueued(Succeed(":"));
  EXPECT_TRUE(Client.StartQueue(1));
  EXPECT_FALSE(Client.StopQueue()) << "a pending start stays";
  EXPECT_NE(Client.GetQueueStartTime(), 0U);
  Client.Await(job, {Finished});  // up to 15 seconds after the time
  EXPECT_TRUE(Eventually([&] { return !Client.IsQueueRunning(); }));
  EXPECT_EQ(Client.GetQueueStartTime(), 0U);
}
}  // namespace
}  // namespace tlm::test
