// The plate as a system of linear equations: finite volumes on a regular grid, one heat balance per cell.
//
// Cells are counted along x first, from the lower left corner. All heat flows are in watts per metre of depth.
#pragma once

#include <array>
#include <vector>

#include "heat2d/deck.h"

namespace heat2d {

// Heat leaves a cell by its Diagonal and comes back from its neighbours; what is left over is its Load. Temperatures
// are counted from Reference, the mean of those that the deck names, so that an absolute scale costs no digits.
struct HeatSystem {
  int Nx = 0, Ny = 0;
  double Reference = 0;
  std::vector<double> East;      // conductance to the neighbour on the right in W/(m K), 0 in the last column
  std::vector<double> North;     // and to the one above, 0 in the last row
  std::vector<double> Diagonal;  // W/(m K)
  std::vector<double> Load;      // W/m
};

HeatSystem BuildSystem(const Deck& deck);

// result = matrix * values, and returns values . result. The matrix is symmetric and positive definite.
double Multiply(const HeatSystem& system, const std::vector<double>& values, std::vector<double>& result);

struct SideHeat {
  double Inflow = 0;           // W/m
  double MeanTemperature = 0;  // of the plate's edge
};

struct HeatBalance {
  std::array<SideHeat, 4> Sides;  // in the order of kSides
  double Source = 0;              // W/m
  double Imbalance = 0;           // what comes in and does not leave, W/m; 0 for an exact solution
  double Turnover = 0;            // all that comes in, W/m
};

// `temperatures` as the deck counts them, one per cell.
HeatBalance BalanceHeat(const Deck& deck, const std::vector<double>& temperatures);

}  // namespace heat2d
