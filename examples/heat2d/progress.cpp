#include "heat2d/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

namespace heat2d {
namespace {

constexpr std::chrono::milliseconds kReportInterval{250};
constexpr std::chrono::milliseconds kHoldBackStep{20};

}  // namespace

bool ProgressWatch::GoOn(int iteration, double residual) {
  if (residual <= tolerance_) {
    done_ = 1;
  } else if (residual < 1) {
    done_ = std::clamp(std::log(residual) / std::log(tolerance_), done_, 0.999);
  }
  if (!HoldBack()) return false;
  Report(iteration, residual);
  return !reporter_.StopRequested();
}

bool ProgressWatch::HoldBack() {
  while (Clock::now() - start_ < done_ * pace_) {
    if (reporter_.StopRequested()) return false;
    std::this_thread::sleep_for(kHoldBackStep);
  }
  return true;
}

void ProgressWatch::Report(int iteration, double residual) {
  const auto percent = static_cast<std::int64_t>(100 * done_);
  if (percent == reported_) return;
  const Clock::time_point now = Clock::now();
  if (done_ < 1 && reported_ >= 0 && now - reportTime_ < kReportInterval) return;
  reported_ = percent;
  reportTime_ = now;
  reporter_.Progress(static_cast<std::uint32_t>(percent));
  if (percent / 10 == logged_) return;
  logged_ = percent / 10;
  char line[80];
  std::snprintf(line, sizeof line, "%3d %%  iteration %6d  residual %.1e\n", static_cast<int>(percent), iteration,
                residual);
  log_ << line << std::flush;
}

}  // namespace heat2d
