#include "tlmctl/queue_state.h"

#include "platform/thread.h"
#include "tlmctl/known_jobs.h"

namespace tlm::ctl {

namespace {

bool IsOfQueue(const Task& task) { return task.RunClass != kRunAtOnce && task.RunClass != kRunDistributed; }

}  // namespace

// The server keeps the time of a start until the queue has run empty, so that one that has come is none.
std::int64_t PendingStart(QorJMClient& client) {
  const auto time = static_cast<std::int64_t>(client.GetQueueStartTime());
  return time > platform::SecondsSince1970() ? time : 0;
}

QueueState LookAtQueue(QorJMClient& client) {
  QueueState queue;
  queue.Runs = client.IsQueueRunning();
  queue.StartsAt = PendingStart(client);
  queue.Limit = client.GetQueueLimit();
  for (const KnownJob& job : FetchAllKnownJobs(client)) {
    if (HasEnded(job.State)) continue;
    if (job.State.Status != Queued) {
      if (job.State.RunClass != kRunDistributed) ++queue.Running;
      if (IsOfQueue(job.State)) queue.RunningHere.push_back(job.Handle);
    } else if (IsOfQueue(job.State)) {
      ++queue.Waiting;
    }
  }
  return queue;
}

}  // namespace tlm::ctl
