// How the server's queue stands.
#pragma once

#include <cstdint>
#include <vector>

#include "tlmctl/jobs.h"

namespace tlm::ctl {

struct QueueState {
  bool Runs = false;
  std::int64_t StartsAt = 0;  // seconds since 1970; 0 if no start is pending
  std::uint32_t Limit = 0;
  std::size_t Waiting = 0;                      // jobs of the queue
  std::vector<KnownJob> Holders;                // what the limit counts: jobs of all classes that run on this server
  std::vector<std::uint64_t> RunningFromQueue;  // those of the queue among them
  bool IsFull() const { return Holders.size() >= Limit; }
};

// Asks for every job.
QueueState LookAtQueue(QorJMClient& client);

// The time of a start that is still to come, 0 if there is none.
std::int64_t PendingStart(QorJMClient& client);

}  // namespace tlm::ctl
