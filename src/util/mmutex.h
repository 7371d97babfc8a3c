// A recursive lock, and its holder by scope.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "util/thread_annotations.h"

namespace tlm {

class CAPABILITY("mutex") MMutex {
 public:
  MMutex() = default;
  virtual ~MMutex() = default;
  MMutex(const MMutex&) = delete;
  MMutex& operator=(const MMutex&) = delete;

  // Not for a thread that is the owner: nesting is the holder's business.
  void Lock() ACQUIRE();
  void Unlock() RELEASE();
  // True if the calling thread holds the lock.
  bool IsOwner() const { return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

 private:
  std::mutex mutex_;
  // Only the owning thread ever writes its own id here, so that it may be compared without the lock.
  std::atomic<std::thread::id> owner_;
};

// Nesting costs a comparison: only the outermost holder of a thread locks and releases.
class SCOPED_CAPABILITY MAutoLock {
 public:
  explicit MAutoLock(MMutex& mutex) ACQUIRE(mutex);
  virtual ~MAutoLock() RELEASE();
  MAutoLock(const MAutoLock&) = delete;
  MAutoLock& operator=(const MAutoLock&) = delete;

 private:
  MMutex& mutex_;
  bool locked_;
};

}  // namespace tlm
