// How the server's queue stands.
#pragma once

#include <cstdint>
#include <vector>

#include "jm/qorjmclient.h"

namespace tlm::ctl {

struct QueueState {
  bool Runs = false;
  std::int64_t StartsAt = 0;  // seconds since 1970; 0 if no start is pending
  std::uint32_t Limit = 0;
  std::size_t Waiting = 0;                 // jobs of the queue
  std::size_t Running = 0;                 // jobs of all classes on this server: the limit counts them all
  std::vector<std::uint64_t> RunningHere;  // jobs of the queue
};

// Asks for every job.
QueueState LookAtQueue(QorJMClient& client);

// The time of a start that is still to come, 0 if there is none.
std::int64_t PendingStart(QorJMClient& client);

}  // namespace tlm::ctl
