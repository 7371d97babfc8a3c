// Being the one client to which the server gives a job's output and results.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "jm/qorjmclient.h"

namespace tlm::ctl {

// After a loss the server may still believe in the former connection for a while, and gives nothing to the new one.
class Ownership {
 public:
  // True if this client owns the job now.
  bool Take(QorJMClient& client, std::uint64_t handle) {
    const bool isOwner = client.TakeOwnership(handle);
    if (isOwner) {
      refusedSince_.reset();
    } else if (!refusedSince_) {
      refusedSince_ = Clock::now();
    }
    return isOwner;
  }

  // As it was when it was tried last.
  bool IsOwner() const { return !refusedSince_; }
  // True once it has been refused for longer than a lost connection lives on.
  bool IsRefusedForGood() const { return refusedSince_ && Clock::now() - *refusedSince_ >= kPatience; }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kPatience{90};
  std::optional<Clock::time_point> refusedSince_;
};

}  // namespace tlm::ctl
