#include "heat2d/analysis.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

#include "heat2d/deck.h"
#include "heat2d/heat_system.h"
#include "heat2d/picture.h"
#include "heat2d/progress.h"
#include "heat2d/results.h"
#include "heat2d/solver.h"

namespace heat2d {
namespace {

std::optional<Deck> LoadDeck(const std::string& deckFile, std::ostream& errors) {
  const std::string suffix = std::filesystem::path(deckFile).extension().string();
  for (const char* taken : {".csv", ".ppm", ".dat"}) {
    if (suffix != taken) continue;
    errors << deckFile << ": a deck may not end in " << suffix << ", for the results would take its place\n";
    return std::nullopt;
  }
  std::error_code error;
  std::ifstream file(deckFile, std::ios::binary);
  if (!file || std::filesystem::is_directory(deckFile, error)) {
    errors << deckFile << ": cannot be read\n";
    return std::nullopt;
  }
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::vector<DeckError> problems;
  Deck deck = ReadDeck(text, problems);
  for (const DeckError& problem : problems) errors << deckFile << ':' << problem.Line << ": " << problem.Text << '\n';
  if (!problems.empty()) return std::nullopt;
  return deck;
}

bool WriteResults(const std::string& stem, const Deck& deck, const Solution& solution, std::ostream& errors) {
  const auto write = [&](const char* suffix, const std::string& content) {
    if (ReplaceFile(stem + suffix, content)) return true;
    errors << stem << suffix << ": cannot be written\n";
    return false;
  };
  return write(".csv", FieldTable(deck, solution)) && write(".ppm", DrawField(deck, solution.Temperatures).Ppm()) &&
         write(".dat", SummaryText(deck, solution));
}

}  // namespace

std::string StemOf(const std::string& deckFile) { return std::filesystem::path(deckFile).stem().string(); }

ExitCode Analyse(const std::string& deckFile, Reporter& reporter, std::ostream& log, std::ostream& errors) {
  const std::optional<Deck> deck = LoadDeck(deckFile, errors);
  if (!deck) return kBadInput;
  log << "heat2d: " << deckFile << ", " << deck->Nx << " x " << deck->Ny << " cells\n" << std::flush;

  ProgressWatch watch(reporter, deck->Tolerance, deck->Pace, log);
  const Solution solution = Solve(BuildSystem(*deck), deck->Tolerance, deck->MaxIterations,
                                  [&watch](int iteration, double residual) { return watch.GoOn(iteration, residual); });
  if (solution.How == Solution::End::Stopped) {
    errors << "heat2d: stopped on request after " << solution.Iterations << " iterations, nothing written\n";
    return kStopped;
  }

  const std::string stem = StemOf(deckFile);
  if (!WriteResults(stem, *deck, solution, errors)) return kBadInput;
  reporter.ResultsAvailable();
  if (solution.How != Solution::End::Converged) {
    errors << "heat2d: did not converge in " << solution.Iterations << " iterations, residual " << solution.Residual
           << '\n';
    return kNotConverged;
  }
  reporter.Succeeded();
  log << "heat2d: wrote " << stem << ".dat, " << stem << ".csv and " << stem << ".ppm\n" << std::flush;
  return kGood;
}

}  // namespace heat2d
