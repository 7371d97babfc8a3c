// Who owns a job, what its owner sees of its output, and what the log says about it.
#include "store/ownership.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/trace.h"
#include "support/sandbox.h"

namespace tlm {
namespace {

struct Ownership : ::testing::Test {
  test::Sandbox Disk;
  JobManagerState State;
  const MAutoLock Lock{State.StateLock};
  Session A = Greeted("host", 1001), B = Greeted("host", 1002), Elsewhere = Greeted("other", 1003);

  Ownership() NO_THREAD_SAFETY_ANALYSIS {
    State.TempRoot = Disk.Root();
    Disk.Write("JMTrace.on", "");
  }

  static Session Greeted(const std::string& host, std::uint16_t port) {
    Session session;
    session.ClientHost = host;
    session.ClientPort = port;
    return session;
  }

  Job& AddJob(const std::string& stem, const Session& owner) NO_THREAD_SAFETY_ANALYSIS {
    Job& job = State.Jobs.Add();
    job.ResultStem = stem;
    job.ClientHost = owner.ClientHost;
    job.ClientPort = owner.ClientPort;
    job.OutFile = Disk.Path(stem + "_out");
    return job;
  }

  // How often the log has said so.
  std::size_t Traced(const std::string& text) const {
    const std::string log = Disk.Read("JMTrace.log");
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log.find("] :" + text + "\n", at)) != std::string::npos; ++at) ++count;
    return count;
  }
};

TEST_F(Ownership, IsRefusedToOthersAndTheRefusalToldOnceUntilAnotherJobIsRefused) NO_THREAD_SAFETY_ANALYSIS {
  Job& first = AddJob("first", A);
  Job& second = AddJob("second", A);
  EXPECT_EQ(TakeOwnership(State, A, first.Handle), &first);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(TakeOwnership(State, B, first.Handle), nullptr);
  EXPECT_EQ(Traced("first owned by 1001 not 1002"), 1U);
  EXPECT_EQ(TakeOwnership(State, B, second.Handle), nullptr);
  EXPECT_EQ(TakeOwnership(State, B, first.Handle), nullptr);
  EXPECT_EQ(Traced("first owned by 1001 not 1002"), 2U);
  const std::string log = Disk.Read("JMTrace.log");
  EXPECT_EQ(TakeOwnership(State, Elsewhere, first.Handle), nullptr);
  EXPECT_EQ(TakeOwnership(State, B, 444), nullptr);
  EXPECT_EQ(Disk.Read("JMTrace.log"), log) << "another host and an unknown job are refused silently";
}

TEST_F(Ownership, OfADisownedJobGoesToItsHostAndAllResultsCountAsUnsent) NO_THREAD_SAFETY_ANALYSIS {
  Job& job = AddJob("beam", A);
  Job& others = AddJob("others", B);
  job.SentFileSize["beam.dat"] = 3;
  job.ResultFlags = kResultsBeingSent;
  DisownJobs(State, A);
  EXPECT_EQ(job.ClientPort, 0U);
  EXPECT_TRUE(job.SentFileSize.empty());
  EXPECT_EQ(others.ClientPort, B.ClientPort);
  EXPECT_EQ(Traced("Disowning beam"), 1U);

  job.SentFileDate["beam.dat"] = 5;
  EXPECT_EQ(TakeOwnership(State, Elsewhere, job.Handle), nullptr);
  EXPECT_EQ(TakeOwnership(State, B, job.Handle), &job);
  EXPECT_EQ(Traced("Ownership of beam taken by port 1002"), 1U);
  EXPECT_EQ(job.ResultFlags, kResultsAvailable);
  EXPECT_TRUE(job.SentFileDate.empty());

  DisownJobs(State, Session());  // a connection that never said who it is has port 0
  EXPECT_EQ(job.ClientPort, B.ClientPort);
}

TEST_F(Ownership, LetsOnlyAListeningOwnerCountNewOutput) NO_THREAD_SAFETY_ANALYSIS {
  Job& job = AddJob("beam", A);
  Disk.Write("beam_out", std::string(10000, 'x'));
  const auto step = [&](Session& session) NO_THREAD_SAFETY_ANALYSIS {
    const std::uint64_t before = job.UpdateTimestamp;
    platform::File file = platform::File::Open(job.OutFile, platform::File::Mode::Read).value();
    StepOutput(State, session, job.Handle, file);
    return job.UpdateTimestamp - before;
  };
  A.WatchOffsets[job.Handle] = 4000;
  B.Listening = true;
  EXPECT_EQ(step(A), 0U) << "does not listen";
  EXPECT_EQ(step(B), 0U) << "does not own";
  A.Listening = true;
  EXPECT_EQ(step(A), 1U);
  EXPECT_EQ(A.WatchOffsets[job.Handle], 10000U);
  EXPECT_EQ(step(A), 0U) << "nothing new";
  EXPECT_EQ(ReadOutputFrom(job, 9997, 100), "xxx");
  EXPECT_EQ(ReadOutputFrom(job, 9990, 2), "xx");
  State.SessionList = {&A, &B};
  NotifyJobChange(State, job, Removed);
  EXPECT_EQ(job.UpdateTimestamp, 3U) << "once for each session";
  EXPECT_TRUE(A.WatchOffsets.empty());
}

TEST_F(Ownership, TraceStampsEachCallAndFollowsTheRoot) NO_THREAD_SAFETY_ANALYSIS {
  Trace(State, "half %d", 1);
  Trace(State, " rest %s\n", std::string(5000, 'y').c_str());
  const std::string stamp = "\\[[0-9][0-9]/[0-9][0-9]/[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] :";
  EXPECT_THAT(Disk.Read("JMTrace.log"), ::testing::MatchesRegex(stamp + "half 1" + stamp + " rest y{5000}\n"));
  const test::Sandbox other;
  State.TempRoot = other.Root();
  Trace(State, "unheard\n");
  EXPECT_FALSE(other.Has("JMTrace.log"));
  other.Write("JMTrace.on", "");
  Trace(State, "heard\n");
  EXPECT_THAT(other.Read("JMTrace.log"), ::testing::EndsWith("] :heard\n"));
  EXPECT_EQ(Traced("heard"), 0U);
  State.TempRoot = other.Path("missing");
  Trace(State, "nowhere\n");
}

}  // namespace
}  // namespace tlm
