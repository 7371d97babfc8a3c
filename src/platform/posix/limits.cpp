#include "platform/limits.h"

#include <optional>
#include <sys/resource.h>

#include "platform/posix/descriptor_limit.h"

namespace tlm::platform {

namespace {

std::optional<rlimit> formerLimit;

}  // namespace

void RaiseDescriptorLimit() {
  rlimit former = {};
  if (getrlimit(RLIMIT_NOFILE, &former) != 0 || former.rlim_cur == former.rlim_max) return;
  rlimit raised = former;
  raised.rlim_cur = former.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &raised) == 0) formerLimit = former;
}

void RestoreDescriptorLimit(pid_t child) noexcept {
  if (formerLimit) prlimit(child, RLIMIT_NOFILE, &*formerLimit, nullptr);
}

}  // namespace tlm::platform
