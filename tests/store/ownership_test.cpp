// What becomes of a job whose owner goes in the middle of a transfer.
#include "store/ownership.h"

#include <gtest/gtest.h>

namespace tlm {
namespace {

TEST(Ownership, OfADisownedJobGoesToItsHostAndAllResultsCountAsUnsent) {
  JobManagerState state;
  const MAutoLock lock(state.StateLock);
  Session former, next, stranger;
  former.ClientHost = next.ClientHost = "host";
  stranger.ClientHost = "other";
  former.ClientPort = 1001;
  next.ClientPort = stranger.ClientPort = 1002;
  Job& job = state.Jobs.Add();
  job.ClientHost = former.ClientHost;
  job.ClientPort = former.ClientPort;
  job.SentFileSize["beam.dat"] = 3;
  job.ResultFlags = kResultsBeingSent;

  DisownJobs(state, former);
  EXPECT_EQ(job.ClientPort, 0U);
  EXPECT_TRUE(job.SentFileSize.empty());
  job.SentFileDate["beam.dat"] = 5;
  EXPECT_EQ(TakeOwnership(state, stranger, job.Handle), nullptr);
  EXPECT_EQ(TakeOwnership(state, next, job.Handle), &job);
  EXPECT_EQ(job.ResultFlags, kResultsAvailable);
  EXPECT_TRUE(job.SentFileDate.empty());
  DisownJobs(state, Session());  // a connection that never said who it is has port 0
  EXPECT_EQ(job.ClientPort, next.ClientPort);
}

}  // namespace
}  // namespace tlm
