// The job table against a model that answers each question by looking at every job.
#include "store/job_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace tlm {
namespace {

using ::testing::ElementsAreArray;

// What the table should hold, in order of creation.
struct Model {
  std::map<JobRef, Job> Jobs;
  std::map<std::int32_t, JobRef> Attached;

  bool IsBlocked(const Job& job) const {
    const auto found = Jobs.find(job.Predecessor);
    return found != Jobs.end() && found->second.Status != Finished;
  }

  bool IsRetirable(const Job& job) const {
    if (job.Dependents != 0 && job.Killed >= 0) return false;
    if ((job.ResultFlags & 1) != 0 && job.Killed >= 0) return false;
    if ((job.ResultFlags & 2) != 0) return false;
    return (job.Status == Finished || job.RemoveWhenDone) && !Attached.contains(job.Pid);
  }

  template <class Rule>
  std::vector<JobRef> Where(Rule rule) const {
    std::vector<JobRef> found;
    for (const auto& [ref, job] : Jobs) {
      if (rule(job)) found.push_back(ref);
    }
    return found;
  }
};

struct JobTableModel : ::testing::TestWithParam<unsigned> {
  std::mt19937 Random{GetParam()};
  JobTable Table;
  Model Expected;

  unsigned Below(std::size_t limit) { return static_cast<unsigned>(Random() % limit); }

  JobRef AnyRef() {  // none, one that is there, or one that has left
    return Below(4) == 0 || Expected.Jobs.empty() ? 0 : 4 * JobRef{1 + Below(Expected.Jobs.rbegin()->first / 4)};
  }

  void Submit() {
    Job& job = Table.Add();
    Job& copy = Expected.Jobs[job.Handle];
    ASSERT_EQ(copy.Handle, 0U) << "a handle was used twice";
    job.RunClass = copy.RunClass = Below(4);
    job.Status = copy.Status = Below(5) == 0 ? Aborted : Queued;
    copy.Handle = job.Handle;
    copy.Predecessor = AnyRef();
    copy.CreatorJob = AnyRef();
    Table.SetCreator(job, copy.CreatorJob);
    Table.SetPredecessor(job, copy.Predecessor);
  }

  void Change(JobRef ref) {
    Job& job = *Table.Find(ref);
    Job& copy = Expected.Jobs[ref];
    switch (Below(7)) {
      case 0:
        job.Killed = copy.Killed = -static_cast<std::int32_t>(Below(3));
        break;
      case 1:
        job.Pid = copy.Pid = static_cast<std::int32_t>(Below(6));  // few, so that several jobs share one
        break;
      case 2:
        job.Dependents = copy.Dependents = static_cast<std::int32_t>(Below(2));
        break;
      case 3:
        job.ResultFlags = copy.ResultFlags = Below(4);
        break;
      case 4:
        job.RemoveWhenDone = copy.RemoveWhenDone = Below(2) == 0;
        break;
      default:
        job.Status = copy.Status = 1 + Below(7);
    }
    Table.Changed(job);
  }

  void AttachOrDetach() {
    const auto pid = static_cast<std::int32_t>(Below(6));
    if (Below(2) == 0) {
      const JobRef ref = AnyRef();
      Table.Attach(pid, ref);
      if (pid != 0) Expected.Attached[pid] = ref;
    } else {
      Table.Detach(pid);
      Expected.Attached.erase(pid);
    }
  }

  void Step() {
    const JobRef ref = AnyRef();
    const bool exists = Expected.Jobs.contains(ref);
    switch (Below(8)) {
      case 0:
      case 1:
        return Submit();
      case 2:
        Table.Erase(ref);
        Expected.Jobs.erase(ref);
        return;
      case 3:
        return AttachOrDetach();
      default:
        if (exists) Change(ref);
    }
  }

  void Compare() {
    const Model& m = Expected;
    EXPECT_THAT(Table.All(), ElementsAreArray(m.Where([](const Job&) { return true; })));
    EXPECT_EQ(Table.Size(), m.Jobs.size());
    const auto ready = [&m](const Job& job) { return job.Status == Queued && !m.IsBlocked(job); };
    EXPECT_THAT(Table.ReadyAtOnce(),
                ElementsAreArray(m.Where([&](const Job& job) { return ready(job) && job.RunClass == 0; })));
    EXPECT_THAT(Table.ReadyInQueue(), ElementsAreArray(m.Where([&](const Job& job) {
                  return ready(job) && job.RunClass != 0 && job.RunClass != 2;
                })));
    EXPECT_EQ(Table.QueueInUse(), !m.Where([](const Job& job) {
                                      return job.RunClass == 1 && (job.Status == Queued || job.Status == Running);
                                    }).empty());
    EXPECT_THAT(Table.Retirable(), ElementsAreArray(m.Where([&m](const Job& job) { return m.IsRetirable(job); })));
    EXPECT_THAT(Table.RemovedJobs(), ElementsAreArray(m.Where([](const Job& job) { return job.Status == Removed; })));
    CompareLinks();
  }

  void CompareLinks() {
    const Model& m = Expected;
    for (const auto& [ref, job] : m.Jobs) {
      EXPECT_EQ(Table.IsBlocked(*Table.Find(ref)), m.IsBlocked(job));
      EXPECT_THAT(Table.FollowersOf(ref), ElementsAreArray(m.Where([ref = ref](const Job& other) {
                    return other.Predecessor == ref || other.CreatorJob == ref;
                  })));
    }
    EXPECT_EQ(Table.FindByPid(0), nullptr);
    EXPECT_FALSE(Table.IsAttached(0));
    for (std::int32_t pid = 1; pid < 6; ++pid) {
      const std::vector<JobRef> all = m.Where([pid](const Job& job) { return job.Pid == pid; });
      EXPECT_EQ(Table.FindByPid(pid), all.empty() ? nullptr : Table.Find(all.front()));
      const auto attached = m.Attached.find(pid);
      EXPECT_EQ(Table.FindAttached(pid), attached == m.Attached.end() ? nullptr : Table.Find(attached->second));
    }
  }
};

TEST_P(JobTableModel, AnswersAsALookAtEveryJobWould) {
  for (int step = 0; step < 1500; ++step) {
    Step();
    if (Expected.Jobs.size() > 25) {  // so that full tables, emptying ones and gaps all occur
      for (int i = 0; i < 20; ++i) {
        const JobRef ref = AnyRef();
        Table.Erase(ref);
        Expected.Jobs.erase(ref);
      }
    }
    Compare();
    ASSERT_FALSE(HasFailure()) << "after step " << step << " with seed " << GetParam();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, JobTableModel, ::testing::Range(1U, 9U));

}  // namespace
}  // namespace tlm
