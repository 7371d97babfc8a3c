// What becomes of a job whose owner has gone.
#include "store/ownership.h"

#include <gtest/gtest.h>

#include "support/sandbox.h"

namespace tlm {
namespace {

struct Ownership : ::testing::Test {
  test::Sandbox Disk;
  JobManagerState State;
  const MAutoLock Lock{State.StateLock};
  Session A = Greeted("host", 1001), B = Greeted("host", 1002), Elsewhere = Greeted("other", 1003);

  Ownership() NO_THREAD_SAFETY_ANALYSIS { State.TempRoot = Disk.Root(); }

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
};

TEST_F(Ownership, OfADisownedJobGoesToItsHostAndAllResultsCountAsUnsent) NO_THREAD_SAFETY_ANALYSIS {
  Job& job = AddJob("beam", A);
  job.SentFileSize["beam.dat"] = 3;
  job.ResultFlags = kResultsBeingSent;
  DisownJobs(State, A);
  EXPECT_EQ(job.ClientPort, 0U);
  EXPECT_TRUE(job.SentFileSize.empty());

  job.SentFileDate["beam.dat"] = 5;
  EXPECT_EQ(TakeOwnership(State, Elsewhere, job.Handle), nullptr);
  EXPECT_EQ(TakeOwnership(State, B, job.Handle), &job);
  EXPECT_EQ(job.ResultFlags, kResultsAvailable);
  EXPECT_TRUE(job.SentFileDate.empty());

  DisownJobs(State, Session());  // a connection that never said who it is has port 0
  EXPECT_EQ(job.ClientPort, B.ClientPort);
}

}  // namespace
}  // namespace tlm
