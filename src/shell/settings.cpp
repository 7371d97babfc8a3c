#include "shell/settings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "libtsenv/product_environment.h"
#include "libtsenv/runtime_identity.h"
#include "platform/host.h"

namespace tlm {

namespace {

constexpr double kSecondsPerHour = 3600.0;
constexpr double kLongestExpiry = 1e15;  // seconds
constexpr std::int64_t kShortestExpiry = 30;

// A value that is no number counts as 0; one beyond the range is a number all the same.
bool IsOn(const std::string& name) {
  const auto text = ProductValue(name.c_str());
  return text && std::strtol(text->c_str(), nullptr, 10) != 0;
}

std::int64_t Expiry(std::int64_t byDefault) {
  if (const auto text = ProductValue(Identity().RUNTIME_JM_ENVIRONMENT_EXPIRY.c_str())) {
    const double hours = std::strtod(text->c_str(), nullptr);
    if (hours >= 0) byDefault = static_cast<std::int64_t>(std::min(hours * kSecondsPerHour, kLongestExpiry));
  }
  return std::max(byDefault, kShortestExpiry);
}

}  // namespace

void ApplySettings(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  if (IsOn(Identity().RUNTIME_JM_ENVIRONMENT_TRACE)) {
    state.ConsoleTrace = true;
    std::puts("Full Trace ON");
  }
  state.TempExpiry = Expiry(state.TempExpiry);
  if (IsOn(Identity().RUNTIME_JM_ENVIRONMENT_SIGNALS)) state.KillViaEvent = false;
  if (platform::ProcessorCount() > 1) state.QueueLimit = 2;
}

}  // namespace tlm
