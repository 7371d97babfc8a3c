// Many jobs at once, and a full table.
#include "support/job_client.h"

namespace tlm::test {
namespace {
using std::chrono::milliseconds;

struct Load : JobTest {
  template <class Call>
  static milliseconds MedianTime(Call call) {
    std::vector<std::chrono::steady_clock::duration> times;
    for (std::size_t i = 0; i < 21; ++i) times.push_back(TimeOf([&] { call(i); }));
    std::sort(times.begin(), times.end());
    return std::chrono::duration_cast<milliseconds>(times[times.size() / 2]);
  }
};

TEST_F(Load, OfTwoHundredShortJobsEndsRight) {
  Server.AddProgram("short", "echo $1\necho 4 1 >qorjmmsg.$$\nexit $1\n");
  HandleList handles;
  for (int i = 0; i < 200; ++i) handles.push_back(Submit("short " + std::to_string(i)));
  for (std::size_t i = 0; i < handles.size(); ++i) {
    const Task task = Client.Await(handles[i], {Finished});
    EXPECT_EQ(task.ExitCode, i);
    EXPECT_EQ(Client.Output(handles[i]), std::to_string(i) + "\n");
  }
  EXPECT_TRUE(Eventually([&] { return Client.GetJobCount() == 0; }));
  EXPECT_EQ(Client.Jobs(), handles);
}

TEST_F(Load, OfFiveThousandWaitingJobsSlowsNoCall) {
  constexpr std::size_t kJobs = 5000;
  constexpr milliseconds kBound{50};
  HandleList jobs;
  for (std::size_t i = 0; i < kJobs; ++i) jobs.push_back(SubmitQueued("do :", i % 5 == 0 ? 0 : jobs.back()));
  EXPECT_LT(MedianTime([&](std::size_t i) { Client.Get(jobs[i * 200]); }), kBound);
  EXPECT_LT(MedianTime([&](std::size_t) { Client.GetJobCount(); }), kBound);
  EXPECT_LT(MedianTime([&](std::size_t i) { SubmitQueued("do :", jobs[i * 200]); }), kBound);
  EXPECT_LT(MedianTime([&](std::size_t i) { Client.RemoveJob(jobs[i * 200 + 2]); }), kBound);
  EXPECT_LT(MedianTime([&](std::size_t i) {
              Client.ReleaseJob(jobs[i * 200 + 4]);
              Client.Get(jobs[i * 200 + 4]);
            }),
            kBound);
  EXPECT_EQ(Client.Jobs().size(), kJobs);  // 21 came, and 21 went
  EXPECT_EQ(Client.GetJobCount(), 0U);
}

TEST_F(Load, OfALongChainIsAbortedInOneGo) {
  // Each job of the chain failed all behind it once more: the time grew with the square of the chain's length.
  constexpr std::size_t kJobs = 5000;
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < kJobs; ++i) last = SubmitQueued("do :", last);
  EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Client.AbortAllJobs()); }), std::chrono::seconds(3));
  EXPECT_EQ(Client.Get(last).Status, std::uint32_t{Aborted});
}
}  // namespace
}  // namespace tlm::test
