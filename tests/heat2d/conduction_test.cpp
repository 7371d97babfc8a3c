// The solution against what can be worked out by hand.
#include <cmath>
#include <gmock/gmock.h>
#include <numbers>

#include "heat2d/deck.h"
#include "heat2d/heat_system.h"
#include "heat2d/solver.h"

namespace heat2d {
namespace {

struct Solved {
  explicit Solved(const std::string& text) {
    std::vector<DeckError> errors;
    Plate = ReadDeck(text + "\ntolerance 1e-12\n", errors);
    EXPECT_TRUE(errors.empty()) << errors.front().Text;
    Result = Solve(BuildSystem(Plate), Plate.Tolerance, Plate.MaxIterations, [](int, double) { return true; });
    EXPECT_EQ(Result.How, Solution::End::Converged);
    Heat = BalanceHeat(Plate, Result.Temperatures);
    EXPECT_NEAR(Heat.Imbalance, 0, 1e-8 * (Heat.Turnover + 1));
  }
  double At(int i, int j) const { return Result.Temperatures.at(static_cast<unsigned>(j * Plate.Nx + i)); }
  SideHeat On(Side side) const { return Heat.Sides[static_cast<std::size_t>(side)]; }

  Deck Plate;
  Solution Result;
  HeatBalance Heat;
};

TEST(Conduction, ThroughTwoMaterialsAndAFilmAddsTheirResistances) {
  const Solved slab(
      "size 1 0.5\ngrid 50 4\nconductivity 2\nconductivity 40 in 0.4 0 1 0.5\nleft temperature 500\n"
      "right convection 25 20");
  const double flux = (500 - 20) / (0.4 / 2 + 0.6 / 40 + 1.0 / 25);
  EXPECT_NEAR(slab.On(Side::Left).Inflow, flux * 0.5, 1e-6);
  EXPECT_NEAR(slab.On(Side::Right).MeanTemperature, 20 + flux / 25, 1e-7);
  EXPECT_NEAR(slab.At(19, 1), 500 - flux * 0.39 / 2, 1e-7);
  EXPECT_NEAR(slab.At(20, 1), 20 + flux * (1.0 / 25 + 0.59 / 40), 1e-7);
}

TEST(Conduction, CarriesAGivenFluxAndAGivenSourceOutOfThePlate) {
  const Solved plate("size 1 2\ngrid 101 3\nconductivity 4\nsource 60\nsource 20\nleft flux 80\nright temperature 10");
  EXPECT_NEAR(plate.Heat.Source, 160, 1e-8);
  EXPECT_NEAR(plate.On(Side::Right).Inflow, -320, 1e-6);
  EXPECT_NEAR(plate.On(Side::Left).MeanTemperature, 10 + (80 + 80 / 2.0) / 4, 1e-3);  // (flux + q L / 2) L / k
}

TEST(Conduction, InASquareWithOneHotSideFollowsTheFourierSeries) {
  const Solved square(
      "size 1 1\ngrid 81 81\nconductivity 3\ntop temperature 1\nleft temperature 0\n"
      "right temperature 0\nbottom temperature 0");
  const auto series = [](double x, double y) {
    double sum = 0;
    for (int n = 1; n < 60; n += 2) {
      const double wave = n * std::numbers::pi;
      sum += 4 / wave * std::sin(wave * x) * std::sinh(wave * y) / std::sinh(wave);
    }
    return sum;
  };
  for (const auto& [i, j] : {std::pair{20, 40}, {40, 60}, {60, 20}, {10, 70}}) {
    EXPECT_NEAR(square.At(i, j), series((i + 0.5) / 81, (j + 0.5) / 81), 1e-3) << i << ", " << j;
  }
}

}  // namespace
}  // namespace heat2d
