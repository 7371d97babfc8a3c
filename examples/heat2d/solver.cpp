#include "heat2d/solver.h"

#include <cmath>

namespace heat2d {
namespace {

double Dot(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

// values += factor * step
void Add(std::vector<double>& values, double factor, const std::vector<double>& step) {
  for (std::size_t i = 0; i < values.size(); ++i) values[i] += factor * step[i];
}

// Conjugate gradients with the diagonal as preconditioner, begun from the reference temperature everywhere.
class ConjugateGradients {
 public:
  explicit ConjugateGradients(const HeatSystem& system)
      : system_(system),
        values_(system.Load.size()),
        residual_(system.Load),
        direction_(system.Load.size()),
        product_(system.Load.size()),
        first_(std::sqrt(Dot(residual_, residual_))) {}

  double Residual() const { return first_ == 0 ? 0 : std::sqrt(Dot(residual_, residual_)) / first_; }
  const std::vector<double>& Values() const { return values_; }

  void Step() {
    const std::size_t count = residual_.size();
    double weight = 0;
    for (std::size_t i = 0; i < count; ++i) weight += residual_[i] * residual_[i] / system_.Diagonal[i];
    const double keep = weight_ == 0 ? 0 : weight / weight_;
    weight_ = weight;
    for (std::size_t i = 0; i < count; ++i) {
      direction_[i] = residual_[i] / system_.Diagonal[i] + keep * direction_[i];
    }
    const double length = weight / Multiply(system_, direction_, product_);
    Add(values_, length, direction_);
    Add(residual_, -length, product_);
  }

 private:
  const HeatSystem& system_;
  std::vector<double> values_, residual_, direction_, product_;
  double first_;
  double weight_ = 0;
};

}  // namespace

Solution Solve(const HeatSystem& system, double tolerance, int maxIterations, const Monitor& goOn) {
  ConjugateGradients gradients(system);
  Solution solution;
  while (true) {
    solution.Residual = gradients.Residual();
    if (!goOn(solution.Iterations, solution.Residual)) {
      solution.How = Solution::End::Stopped;
      break;
    }
    if (solution.Residual <= tolerance) {
      solution.How = Solution::End::Converged;
      break;
    }
    // A residual that is no number any more will never be one again.
    if (solution.Iterations == maxIterations || !std::isfinite(solution.Residual)) break;
    gradients.Step();
    ++solution.Iterations;
  }
  solution.Temperatures = gradients.Values();
  for (double& temperature : solution.Temperatures) temperature += system.Reference;
  return solution;
}

}  // namespace heat2d
