#include "tlmctl/queue_state.h"

#include <utility>

#include "platform/thread.h"
#include "tlmctl/job_counts.h"
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
  for (KnownJob& job : FetchAllKnownJobs(client)) {
    const PlaceInLife place = PlaceOf(job.State);
    if (place == PlaceInLife::Waiting && IsOfQueue(job.State)) ++queue.Waiting;
    if (place != PlaceInLife::Running || job.State.RunClass == kRunDistributed) continue;
    if (IsOfQueue(job.State)) queue.RunningFromQueue.push_back(job.Handle);
    queue.Holders.push_back(std::move(job));
  }
  return queue;
}

}  // namespace tlm::ctl
