#include "store/handle_set.h"

#include <bit>

namespace tlm {

namespace {

constexpr JobRef kBlockSize = 64 * HandleSet::kHandleStep;

JobRef FirstOf(JobRef block, std::uint64_t bits) {
  return block + static_cast<JobRef>(std::countr_zero(bits)) * HandleSet::kHandleStep;
}

}  // namespace

void HandleSet::Set(JobRef ref, bool member) {
  const JobRef block = ref - ref % kBlockSize;
  const std::uint64_t bit = std::uint64_t{1} << (ref - block) / kHandleStep;
  const auto found = member ? blocks_.try_emplace(block).first : blocks_.find(block);
  if (found == blocks_.end() || ((found->second & bit) != 0) == member) return;
  found->second ^= bit;
  size_ = member ? size_ + 1 : size_ - 1;
  if (found->second == 0) blocks_.erase(found);
}

JobRef HandleSet::First() const {
  return blocks_.empty() ? 0 : FirstOf(blocks_.begin()->first, blocks_.begin()->second);
}

std::vector<JobRef> HandleSet::All() const {
  std::vector<JobRef> refs;
  refs.reserve(size_);
  for (auto [block, bits] : blocks_) {
    for (; bits != 0; bits &= bits - 1) refs.push_back(FirstOf(block, bits));
  }
  return refs;
}

}  // namespace tlm
