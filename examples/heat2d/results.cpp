#include "heat2d/results.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>

#include "heat2d/heat_system.h"

namespace heat2d {
namespace {

[[gnu::format(printf, 1, 2)]] std::string Format(const char* form, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, form);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line above is not seen
  std::vsnprintf(text, sizeof text, form, arguments);
  va_end(arguments);
  return text;
}

struct Point {
  double X, Y;
};

Point CentreOf(const Deck& deck, std::size_t cell) {
  const int index = static_cast<int>(cell);
  const int column = index % deck.Nx, row = index / deck.Nx;
  return {(column + 0.5) * deck.Width / deck.Nx, (row + 0.5) * deck.Height / deck.Ny};
}

std::string DeckEcho(const Deck& deck) {
  std::string text = "DECK\n";
  for (std::size_t i = 0; i < deck.Lines.size(); ++i) {
    text += Format("%5zu  ", i + 1) + deck.Lines[i];
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
  }
  return text;
}

std::string SolutionText(const Deck& deck, const Solution& solution) {
  const bool converged = solution.How == Solution::End::Converged;
  return Format("SOLUTION   %s\n", converged ? "converged" : "DID NOT CONVERGE: do not trust what follows") +
         Format("  cells        %12d   (%d x %d)\n", deck.Nx * deck.Ny, deck.Nx, deck.Ny) +
         Format("  iterations   %12d   (at most %d)\n", solution.Iterations, deck.MaxIterations) +
         Format("  residual     %12.3e   (tolerance %.3e)\n", solution.Residual, deck.Tolerance);
}

std::string TemperatureText(const Deck& deck, const Solution& solution) {
  const std::vector<double>& values = solution.Temperatures;
  const auto [least, greatest] = std::ranges::minmax_element(values);
  const auto extreme = [&](const char* name, std::vector<double>::const_iterator at) {
    const Point where = CentreOf(deck, static_cast<std::size_t>(at - values.begin()));
    return Format("  %-12s %12.6g   at x = %.6g, y = %.6g\n", name, *at, where.X, where.Y);
  };
  const double mean = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
  return "TEMPERATURE   in the cells' centres\n" + extreme("least", least) + extreme("greatest", greatest) +
         Format("  %-12s %12.6g\n", "mean", mean);
}

std::string BalanceText(const Deck& deck, const Solution& solution) {
  const HeatBalance balance = BalanceHeat(deck, solution.Temperatures);
  std::string text = "HEAT FLOW INTO THE PLATE   W per metre of depth; the edge's mean temperature; condition\n";
  for (const Side side : kSides) {
    const SideHeat& heat = balance.Sides[static_cast<std::size_t>(side)];
    text += Format("  %-12s %12.6g   %12.6g   ", NameOf(side), heat.Inflow, heat.MeanTemperature);
    text += Describe(deck.At(side)) + "\n";
  }
  text += Format("  %-12s %12.6g\n", "source", balance.Source);
  text += Format("  %-12s %12.3e", "imbalance", balance.Imbalance);
  if (balance.Turnover > 0)
    text += Format("   %.2e of all that comes in", std::abs(balance.Imbalance) / balance.Turnover);
  return text + "\n";
}

}  // namespace

std::string SummaryText(const Deck& deck, const Solution& solution) {
  std::string text = "heat2d: steady heat conduction in a rectangular plate\n";
  if (!deck.Title.empty()) text += deck.Title + "\n";
  return text + "\n" + SolutionText(deck, solution) + "\n" + TemperatureText(deck, solution) + "\n" +
         BalanceText(deck, solution) + "\n" + DeckEcho(deck);
}

std::string FieldTable(const Deck& deck, const Solution& solution) {
  std::string text = "x,y,T\n";
  for (std::size_t cell = 0; cell < solution.Temperatures.size(); ++cell) {
    const Point where = CentreOf(deck, cell);
    text += Format("%.9g,%.9g,%.9g\n", where.X, where.Y, solution.Temperatures[cell]);
  }
  return text;
}

bool ReplaceFile(const std::string& path, const std::string& content) {
  const std::filesystem::path target(path);
  // The mark stands in front, so that nobody who goes by stems takes the file for a result.
  const std::filesystem::path sibling = target.parent_path() / ("~" + target.filename().string());
  std::ofstream file(sibling, std::ios::binary | std::ios::trunc);
  file << content;
  file.close();
  std::error_code error;
  if (file) std::filesystem::rename(sibling, target, error);
  if (file && !error) return true;
  std::filesystem::remove(sibling, error);
  return false;
}

}  // namespace heat2d
