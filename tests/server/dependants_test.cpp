// Jobs that wait for others, what the end of one does to the others, and how jobs leave the table.
#include "support/job_client.h"

namespace tlm::test {
namespace {
struct Dependants : JobTest {};

TEST_F(Dependants, WaitForTheirPredecessorAndFailWithIt) {
  const std::uint64_t a = Submit(Do(Wait("a")));
  const std::uint64_t b = Submit(Succeed(":"), a), c = Submit(Succeed(":"), b);
  const std::uint64_t good = Submit(Succeed("sleep 0.3; touch done"));
  const std::uint64_t next = Submit(Succeed("test -e done && echo behind"), good);
  AwaitNumber("a");
  EXPECT_THAT(Client.Statuses({b, c}), ElementsAre(Queued, Queued));
  EXPECT_EQ(Client.GetJobCount(), 2U) << "blocked jobs do not count";
  EXPECT_EQ(Client.Get(b).Predecessor, a);
  EXPECT_EQ(Client.Await(next, {Finished}).Predecessor, good);
  EXPECT_EQ(Client.Output(next), "behind\n");

  Work.Write("stop");
  EXPECT_EQ(Client.AwaitEnd(a).Status, std::uint32_t{Aborted});
  EXPECT_THAT(Client.Statuses({b, c}), ElementsAre(Aborted, Aborted));
  EXPECT_EQ(Client.Get(b).Started, 0);

  const std::uint64_t late = Submit(Succeed(":"), a);
  EXPECT_EQ(Client.Get(late).Status, std::uint32_t{Aborted}) << "takes the state of its predecessor";
  const std::uint64_t broken = Submit("missing");
  Client.Await(broken, {LaunchFailed});
  EXPECT_EQ(Client.Get(Submit(Succeed(":"), broken)).Status, std::uint32_t{LaunchFailed});
  EXPECT_EQ(Client.Await(Submit(Succeed(":"), next), {Finished}).Predecessor, next);

  Server.Root().Write("JMTrace.on", "");
  const HandleList before = Client.Jobs();
  EXPECT_EQ(Submit(Succeed(":"), 444), 0U);
  EXPECT_EQ(Client.Jobs(), before);
  EXPECT_THAT(Server.Root().Read("JMTrace.log"), HasSubstr("submitted with an invalid Predecessor\n"));
}

TEST_F(Dependants, ThatRunAreKilledWhenTheJobThatSubmittedThemFails) {
  const std::uint64_t creator = Submit(Do(Wait("creator")));
  JobClient process(Server.Port());
  EXPECT_EQ(process.AttachProcess(static_cast<std::uint64_t>(AwaitNumber("creator")), "", ""), creator);
  const std::uint64_t created = process.SubmitJob(NewJob(Do("echo $$ >created; sleep 600")));
  const std::uint64_t waiting = process.SubmitJob(NewJob(Succeed(":"), created));
  const std::int32_t pid = AwaitNumber("created");
  EXPECT_TRUE(Client.RemoveJob(creator));
  EXPECT_TRUE(IsGone(pid));
  for (std::uint64_t job : {creator, created, waiting}) EXPECT_EQ(Client.AwaitEnd(job).Status, std::uint32_t{Aborted});
  EXPECT_EQ(Client.Get(created).ExitCode, 0U);
}

TEST_F(Dependants, ThatVanishedOrWereRemovedBlockNothing) {
  const std::uint64_t waiting = SubmitQueued(Succeed(":"));
  const std::uint64_t second = Submit(Succeed("echo ran"), waiting);
  Client.ReleaseJob(waiting);
  EXPECT_EQ(Client.Get(waiting).Status, std::uint32_t{Queued}) << "a dependant keeps it";
  EXPECT_TRUE(Client.RemoveJob(waiting));
  EXPECT_THAT(Client.Statuses({waiting, second}), ElementsAre(Aborted, Aborted));

  const std::uint64_t first = SubmitQueued(Succeed(":"));
  Client.ReleaseJob(first);
  EXPECT_EQ(Client.Get(first).Status, std::uint32_t{Queued}) << "told once more, and retired by it";
  EXPECT_EQ(Client.Get(first).Status, 0U);
  EXPECT_EQ(Submit(Succeed(":"), first), 0U);
}

TEST_F(Dependants, OfFinishedJobsAreSweptWithThemWhenAllAreAborted) {
  const std::uint64_t first = Submit(Succeed(":")), second = Submit(Succeed(":"), first);
  const std::uint64_t third = Submit(Succeed(":"), second), queued = SubmitQueued(Succeed(":"));
  const std::uint64_t running = Submit(Do(Wait("running"))), behind = Submit(Succeed(":"), running);
  Client.Await(third, {Finished});
  const std::int32_t pid = AwaitNumber("running");
  EXPECT_TRUE(Client.AbortAllJobs());
  EXPECT_TRUE(IsGone(pid));
  Client.Await(running, {Aborted});
  EXPECT_THAT(Client.Jobs(), ElementsAre(queued, running, behind));
  EXPECT_THAT(Client.Statuses(Client.Jobs()), ElementsAre(Aborted, Aborted, Aborted));
  HandleList removed{1};
  Client.ListRemovedJobs(removed);
  EXPECT_THAT(removed, ElementsAre(1, first, second, third, queued, running, behind));
}

TEST_F(Dependants, AreRetiredWithAKilledJobThatGoesOnceOnly) {
  // A killed and released job does not wait for its dependant. The dependant then came back to it on its way up and
  // retired it a second time, so that the job's own predecessor counted two dependants gone.
  Server.Root().Write("JMTrace.on", "");
  const std::uint64_t killed = Submit(Do(Wait("killed")));
  const std::uint64_t last = SubmitQueued(Succeed(":"), killed);
  const std::int32_t pid = AwaitNumber("killed");
  EXPECT_TRUE(Client.RemoveJob(killed));
  EXPECT_TRUE(IsGone(pid));
  Client.Await(killed, {Aborted});
  for (std::uint64_t handle : {killed, last}) Client.ReleaseJob(handle);
  Client.Get(last);
  EXPECT_THAT(Client.Jobs(), ElementsAre());
  const std::string log = Server.Root().Read("JMTrace.log");
  EXPECT_THAT(log, HasSubstr("Deleting job from server [job1.in] status[6]\n"));
  EXPECT_EQ(log.find("[job1.in]"), log.rfind("[job1.in]")) << log;
}
}  // namespace
}  // namespace tlm::test
