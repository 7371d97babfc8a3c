// An ordered set of handles.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "store/job.h"

namespace tlm {

// One bit for each handle that might be in it: the set of a hundred thousand jobs stays in the processor's cache. All
// but All costs the logarithm of its size at most.
class HandleSet {
 public:
  static constexpr JobRef kHandleStep = 4;  // every handle is a multiple of it

  void Set(JobRef ref, bool member);

  std::size_t Size() const { return size_; }
  JobRef First() const;  // 0 when empty
  // Linear.
  std::vector<JobRef> All() const;

 private:
  std::map<JobRef, std::uint64_t> blocks_;  // by their first handle; none without members
  std::size_t size_ = 0;
};

}  // namespace tlm
