// Tells how far a solution is, and holds it back to the pace that the deck asks for.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>

#include "heat2d/reporter.h"

namespace heat2d {

class ProgressWatch {
 public:
  // `pace`: the least time that the whole solution takes, in seconds. `log` gets a line for every tenth.
  ProgressWatch(Reporter& reporter, double tolerance, double pace, std::ostream& log)
      : reporter_(reporter), tolerance_(tolerance), pace_(pace), log_(log) {}

  // After each iteration. The share that is done is that of the residual's fall, on a logarithmic scale; it never goes
  // back and is 100 per cent only when the tolerance is reached. False as soon as a stop is requested.
  bool GoOn(int iteration, double residual);

 private:
  using Clock = std::chrono::steady_clock;
  bool HoldBack();
  void Report(int iteration, double residual);

  Reporter& reporter_;
  const double tolerance_;
  const std::chrono::duration<double> pace_;
  std::ostream& log_;
  const Clock::time_point start_ = Clock::now();
  double done_ = 0;  // 0..1
  std::int64_t reported_ = -1;
  std::int64_t logged_ = -1;  // tenths
  Clock::time_point reportTime_;
};

}  // namespace heat2d
