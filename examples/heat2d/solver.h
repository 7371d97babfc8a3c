// Solves the heat balances by conjugate gradients. Knows nothing of decks, files and whoever watches.
#pragma once

#include <functional>
#include <vector>

#include "heat2d/heat_system.h"

namespace heat2d {

struct Solution {
  enum class End { Converged, OutOfIterations, Stopped };
  End How = End::OutOfIterations;
  int Iterations = 0;
  double Residual = 1;               // what is left of the residual that the solution began with
  std::vector<double> Temperatures;  // of the cells' centres
};

// Is told the number of the iteration that was done and its residual, beginning with (0, 1). False stops the solution.
using Monitor = std::function<bool(int iteration, double residual)>;

// Converged as soon as the residual has fallen to `tolerance`.
Solution Solve(const HeatSystem& system, double tolerance, int maxIterations, const Monitor& goOn);

}  // namespace heat2d
