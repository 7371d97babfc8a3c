#include "util/mmutex.h"

namespace tlm {

void MMutex::Lock() NO_THREAD_SAFETY_ANALYSIS {
  mutex_.lock();
  owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

void MMutex::Unlock() NO_THREAD_SAFETY_ANALYSIS {
  owner_.store(std::thread::id(), std::memory_order_relaxed);
  mutex_.unlock();
}

MAutoLock::MAutoLock(MMutex& mutex) NO_THREAD_SAFETY_ANALYSIS : mutex_(mutex), locked_(!mutex.IsOwner()) {
  if (locked_) mutex_.Lock();
}

MAutoLock::~MAutoLock() NO_THREAD_SAFETY_ANALYSIS {
  if (locked_) mutex_.Unlock();
}

}  // namespace tlm
