#include "heat2d/heat_system.h"

#include <algorithm>
#include <cmath>

namespace heat2d {
namespace {

struct Grid {
  explicit Grid(const Deck& deck) : Nx(deck.Nx), Ny(deck.Ny), Dx(deck.Width / Nx), Dy(deck.Height / Ny) {}
  std::size_t Cells() const { return static_cast<std::size_t>(Nx) * static_cast<std::size_t>(Ny); }
  std::size_t Index(int i, int j) const {
    return static_cast<std::size_t>(j) * static_cast<std::size_t>(Nx) + static_cast<std::size_t>(i);
  }
  int Nx, Ny;
  double Dx, Dy;
};

template <class Action>
void ForEachCell(const Grid& grid, const Action& action) {
  for (int j = 0; j < grid.Ny; ++j) {
    for (int i = 0; i < grid.Nx; ++i) action(grid.Index(i, j), (i + 0.5) * grid.Dx, (j + 0.5) * grid.Dy);
  }
}

// In W/(m K).
std::vector<double> CellConductivities(const Deck& deck, const Grid& grid) {
  std::vector<double> result(grid.Cells());
  ForEachCell(grid, [&](std::size_t cell, double x, double y) {
    for (const Region& region : deck.Conductivities) {
      if (region.Contains(x, y)) result[cell] = region.Value;
    }
  });
  return result;
}

// In W/m.
std::vector<double> CellSources(const Deck& deck, const Grid& grid) {
  std::vector<double> result(grid.Cells());
  ForEachCell(grid, [&](std::size_t cell, double x, double y) {
    for (const Region& region : deck.Sources) {
      if (region.Contains(x, y)) result[cell] += region.Value * grid.Dx * grid.Dy;
    }
  });
  return result;
}

// The edge of one cell that is a part of the plate's side.
struct CellEdge {
  std::size_t Cell;
  double Length;    // m
  double Distance;  // from the cell's centre, m
};

template <class Action>
void ForEachEdge(const Grid& grid, Side side, const Action& action) {
  if (side == Side::Left || side == Side::Right) {
    const int column = side == Side::Left ? 0 : grid.Nx - 1;
    for (int j = 0; j < grid.Ny; ++j) action(CellEdge{grid.Index(column, j), grid.Dy, grid.Dx / 2});
  } else {
    const int row = side == Side::Bottom ? 0 : grid.Ny - 1;
    for (int i = 0; i < grid.Nx; ++i) action(CellEdge{grid.Index(i, row), grid.Dx, grid.Dy / 2});
  }
}

// Inflow = Conductance * (condition's temperature - cell's temperature) + Constant.
struct EdgeLaw {
  double Conductance = 0;  // W/(m K)
  double Constant = 0;     // W/m
};

EdgeLaw LawOf(const Condition& condition, const CellEdge& edge, double conductivity) {
  switch (condition.Type) {
    case Condition::Kind::Insulated:
      break;
    case Condition::Kind::Temperature:
      return {edge.Length * conductivity / edge.Distance, 0};
    case Condition::Kind::Flux:
      return {0, edge.Length * condition.Flux};
    case Condition::Kind::Convection:
      return {edge.Length / (edge.Distance / conductivity + 1 / condition.Coefficient), 0};
  }
  return {};
}

double MeanGivenTemperature(const Deck& deck) {
  double sum = 0;
  int count = 0;
  for (const Condition& condition : deck.Conditions) {
    if (condition.Type != Condition::Kind::Temperature && condition.Type != Condition::Kind::Convection) continue;
    sum += condition.Temperature;
    ++count;
  }
  return sum / count;
}

// Half a cell of each conductivity in series: the harmonic mean.
double FaceConductance(double conductivity, double neighbour, double length, double distance) {
  return length / (distance / 2 / conductivity + distance / 2 / neighbour);
}

void JoinNeighbours(const Grid& grid, const std::vector<double>& conductivity, HeatSystem& system) {
  for (int j = 0; j < grid.Ny; ++j) {
    for (int i = 0; i < grid.Nx; ++i) {
      const std::size_t cell = grid.Index(i, j);
      const auto join = [&](std::vector<double>& conductances, std::size_t other, double length, double distance) {
        const double conductance = FaceConductance(conductivity[cell], conductivity[other], length, distance);
        conductances[cell] = conductance;
        system.Diagonal[cell] += conductance;
        system.Diagonal[other] += conductance;
      };
      if (i + 1 < grid.Nx) join(system.East, cell + 1, grid.Dy, grid.Dx);
      if (j + 1 < grid.Ny) join(system.North, grid.Index(i, j + 1), grid.Dx, grid.Dy);
    }
  }
}

}  // namespace

HeatSystem BuildSystem(const Deck& deck) {
  const Grid grid(deck);
  const std::vector<double> conductivity = CellConductivities(deck, grid);
  HeatSystem system;
  system.Nx = grid.Nx;
  system.Ny = grid.Ny;
  system.Reference = MeanGivenTemperature(deck);
  system.East.resize(grid.Cells());
  system.North.resize(grid.Cells());
  system.Diagonal.resize(grid.Cells());
  system.Load = CellSources(deck, grid);
  JoinNeighbours(grid, conductivity, system);
  for (const Side side : kSides) {
    const Condition& condition = deck.At(side);
    ForEachEdge(grid, side, [&](const CellEdge& edge) {
      const EdgeLaw law = LawOf(condition, edge, conductivity[edge.Cell]);
      system.Diagonal[edge.Cell] += law.Conductance;
      system.Load[edge.Cell] += law.Conductance * (condition.Temperature - system.Reference) + law.Constant;
    });
  }
  return system;
}

double Multiply(const HeatSystem& system, const std::vector<double>& values, std::vector<double>& result) {
  const std::size_t row = static_cast<std::size_t>(system.Nx);
  const std::size_t count = values.size();
  double product = 0;
  for (std::size_t cell = 0; cell < count; ++cell) {
    double sum = system.Diagonal[cell] * values[cell];
    if (cell >= 1) sum -= system.East[cell - 1] * values[cell - 1];
    if (cell + 1 < count) sum -= system.East[cell] * values[cell + 1];
    if (cell >= row) sum -= system.North[cell - row] * values[cell - row];
    if (cell + row < count) sum -= system.North[cell] * values[cell + row];
    result[cell] = sum;
    product += sum * values[cell];
  }
  return product;
}

HeatBalance BalanceHeat(const Deck& deck, const std::vector<double>& temperatures) {
  const Grid grid(deck);
  const std::vector<double> conductivity = CellConductivities(deck, grid);
  HeatBalance balance;
  for (const Side side : kSides) {
    const Condition& condition = deck.At(side);
    SideHeat& heat = balance.Sides[static_cast<std::size_t>(side)];
    int edges = 0;
    ForEachEdge(grid, side, [&](const CellEdge& edge) {
      const EdgeLaw law = LawOf(condition, edge, conductivity[edge.Cell]);
      const double inside = temperatures[edge.Cell];
      const double inflow = law.Conductance * (condition.Temperature - inside) + law.Constant;
      heat.Inflow += inflow;
      heat.MeanTemperature += inside + inflow * edge.Distance / (conductivity[edge.Cell] * edge.Length);
      ++edges;
    });
    heat.MeanTemperature /= edges;
    balance.Imbalance += heat.Inflow;
    balance.Turnover += std::max(heat.Inflow, 0.0);
  }
  for (const double source : CellSources(deck, grid)) {
    balance.Source += source;
    balance.Turnover += std::max(source, 0.0);
  }
  balance.Imbalance += balance.Source;
  return balance;
}

}  // namespace heat2d
