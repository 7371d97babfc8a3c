// The programs that were started here and that nobody has waited for yet, so that their ids are surely still theirs.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <sys/types.h>
#include <vector>

namespace tlm::platform {

// Any thread.
class Children {
 public:
  // To be held from before the birth of a child until it has been added. Empty if none may be born any more.
  std::shared_lock<std::shared_timed_mutex> Enter();
  void Add(pid_t id, bool leadsGroup);
  // What waitid says of the child. One that has ended is no longer among these.
  int Wait(pid_t id, int descriptor, siginfo_t& end);
  // Ends all of them, each with its group. Gives their ids. There will be no others.
  std::vector<std::int32_t> TerminateAll();

 private:
  std::shared_timed_mutex door_;
  std::atomic<bool> closed_ = false;
  std::mutex mutex_;
  std::map<pid_t, bool> leadsGroup_;  // guarded by mutex_
};

Children& TheChildren();

}  // namespace tlm::platform
