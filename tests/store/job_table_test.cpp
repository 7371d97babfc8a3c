// The job table against what a look at every job would answer.
#include "store/job_table.h"

#include <gmock/gmock.h>
#include <random>

namespace tlm {
namespace {
using ::testing::ElementsAreArray;

struct JobTableModel : ::testing::TestWithParam<unsigned> {
  std::mt19937 Random{GetParam()};
  JobTable Table;
  JobRef Last = 0;
  std::set<JobRef> Refs;  // of the jobs that should be there
  std::map<std::int32_t, JobRef> Attached;

  template <class Rule>
  std::vector<JobRef> Where(Rule rule) {
    std::vector<JobRef> found;
    std::copy_if(Refs.begin(), Refs.end(), std::back_inserter(found),
                 [&](JobRef ref) { return rule(*Table.Find(ref)); });
    return found;
  }
  bool IsBlocked(const Job& job) {
    return Refs.contains(job.Predecessor) && Table.Find(job.Predecessor)->Status != Finished;
  }
  bool IsRetirable(const Job& job) const {
    if (job.Dependents != 0 && job.Killed >= 0) return false;
    if ((job.ResultFlags & 1) != 0 && job.Killed >= 0) return false;
    if ((job.ResultFlags & 2) != 0) return false;
    return (job.Status == Finished || job.RemoveWhenDone) && !Attached.contains(job.Pid);
  }

  unsigned Below(std::size_t limit) { return static_cast<unsigned>(Random() % limit); }
  std::int32_t AnyPid() { return static_cast<std::int32_t>(Below(6)); }  // few, so that several jobs share one
  JobRef AnyRef() {  // one that is there, or anything from none to the last
    if (!Refs.empty() && Below(2) == 0) return *std::next(Refs.begin(), Below(Refs.size()));
    return 4 * JobRef{Below(Last / 4 + 1)};
  }

  void Submit() {
    Job& job = Table.Add();
    ASSERT_EQ(job.Handle, Last += 4);
    Refs.insert(Last);
    job.RunClass = Below(4);
    job.Status = Below(5) == 0 ? Aborted : Queued;
    const JobRef creator = AnyRef(), predecessor = AnyRef();
    Table.SetCreator(job, creator);
    Table.SetPredecessor(job, predecessor);
    Table.SetDirectory(job, std::string(Below(3), 'd'));
    EXPECT_TRUE(job.CreatorJob == creator && job.Predecessor == predecessor);
  }
  void Change(Job& job) {
    const auto maybe = [this] { return Below(3) == 0; };
    if (maybe()) job.Killed = -static_cast<std::int32_t>(Below(3));
    if (maybe()) job.Pid = AnyPid();
    if (maybe()) job.Dependents = static_cast<std::int32_t>(Below(2));
    if (maybe()) job.ResultFlags = Below(4);
    if (maybe()) job.RemoveWhenDone = Below(2) == 0;
    if (maybe()) job.Status = 1 + Below(7);
    if (maybe()) job.Lite = !job.Lite;
    if (maybe()) job.ClientPort = Below(6);
    Table.Changed(job);
  }
  void Erase(JobRef ref) {
    Table.Erase(ref);
    Refs.erase(ref);
  }
  void Attach(std::int32_t pid, JobRef ref) {
    Table.Attach(pid, ref);
    if (pid != 0) Attached[pid] = ref;
  }
  void Detach(std::int32_t pid) {
    Table.Detach(pid);
    Attached.erase(pid);
  }
  void Step() {
    const unsigned action = Below(16);
    const JobRef ref = AnyRef();
    if (action < 4) return Submit();
    if (action < 6) return Erase(ref);
    if (action == 6) return Attach(AnyPid(), ref);
    if (action == 7) return Detach(AnyPid());
    if (Refs.contains(ref)) Change(*Table.Find(ref));
  }

  static void ExpectSet(const HandleSet& set, const std::vector<JobRef>& refs) {
    EXPECT_EQ(set.All(), refs);
    EXPECT_EQ(set.Size(), refs.size());
    EXPECT_EQ(set.First(), refs.empty() ? 0 : refs.front());
  }
  void Compare() {
    ASSERT_THAT(Table.All(), ElementsAreArray(Refs));
    EXPECT_EQ(Table.Size(), Refs.size());
    const auto ready = [this](const Job& job) { return job.Status == Queued && !IsBlocked(job); };
    const auto readyAtOnce = Where([&](const Job& job) { return ready(job) && job.RunClass == 0; });
    const auto readyInQueue = Where([&](const Job& job) { return ready(job) && job.RunClass % 2 == 1; });
    ExpectSet(Table.ReadyAtOnce(), readyAtOnce);
    ExpectSet(Table.ReadyInQueue(), readyInQueue);
    const auto queued = Where([](const Job& job) {
      return job.RunClass == 1 && (job.Status == Queued || job.Status == Starting || job.Status == Running);
    });
    EXPECT_EQ(Table.QueueInUse(), !queued.empty());
    EXPECT_EQ(Table.LiteCount(), Where([](const Job& job) { return job.Lite && job.Status == Running; }).size());
    ExpectSet(Table.Retirable(), Where([this](const Job& job) { return IsRetirable(job); }));
    ExpectSet(Table.RemovedJobs(), Where([](const Job& job) { return job.Status == Removed; }));
    for (JobRef ref : Refs) {
      EXPECT_EQ(Table.IsBlocked(*Table.Find(ref)), IsBlocked(*Table.Find(ref)));
      const auto followers = Where([ref](const Job& job) { return job.Predecessor == ref || job.CreatorJob == ref; });
      EXPECT_THAT(Table.FollowersOf(ref), ElementsAreArray(followers));
    }
    for (const std::string directory : {"", "d", "dd"}) {
      const auto users = Where([&](const Job& job) { return job.TempDir == directory && !directory.empty(); });
      EXPECT_EQ(Table.IsInUse(directory), !users.empty());
    }
    for (std::int32_t pid = 0; pid < 6; ++pid) {
      const auto port = static_cast<std::uint32_t>(pid);
      EXPECT_EQ(Table.OwnedThrough(port), Where([port](const Job& job) { return job.ClientPort == port; }));
      const std::vector<JobRef> all = Where([pid](const Job& job) { return job.Pid == pid && pid != 0; });
      EXPECT_EQ(Table.FindByPid(pid), all.empty() ? nullptr : Table.Find(all.front()));
      EXPECT_EQ(Table.IsAttached(pid), Attached.contains(pid));
      EXPECT_EQ(Table.FindAttached(pid), Attached.contains(pid) ? Table.Find(Attached.at(pid)) : nullptr);
    }
  }
};

TEST_P(JobTableModel, AnswersAsALookAtEveryJobWould) {
  for (int step = 0; step < 1500; ++step) {
    Step();
    if (Refs.size() > 25) {  // so that full tables, emptying ones and gaps all occur
      for (int i = 0; i < 20; ++i) Erase(*std::next(Refs.begin(), Below(Refs.size())));
    }
    Compare();
    ASSERT_FALSE(HasFailure()) << "after step " << step << " with seed " << GetParam();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, JobTableModel, ::testing::Range(1U, 9U));
}  // namespace
}  // namespace tlm
