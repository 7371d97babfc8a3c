// The groups of measures. Each prints its table, and throws if what it measures does not do what it should.
#pragma once

#include <cstdio>
#include <vector>

#include "report.h"

namespace tlm::bench {

struct Options {
  bool IsQuick = false;  // fewer rounds and smaller sizes

  int Rounds() const { return IsQuick ? 2 : 5; }
  template <class Size>
  Size Choose(Size usual, Size quick) const {
    return IsQuick ? quick : usual;
  }
};

void MeasureNullCalls(const Options& options);
void MeasureFiles(const Options& options);
void MeasureJobs(const Options& options);
void MeasureScale(const Options& options);

// Runs the function for each round, and tells whoever waits for the table.
template <class Function>
void ForEachRound(const Options& options, const char* group, Function function) {
  for (int round = 1; round <= options.Rounds(); ++round) {
    std::fprintf(stderr, "%s: round %d of %d\n", group, round, options.Rounds());
    function();
  }
}

// The figures of one round: the columns take short turns, so that a moment in which the machine has something else to
// do hits all of them, and the median of its turns is a column's figure. `measure` gives it for a column.
template <class Measure>
void TakeTurns(Row& row, std::size_t columns, Measure measure) {
  constexpr int kTurns = 5;
  std::vector<std::vector<double>> figures(columns);
  for (int turn = 0; turn < kTurns; ++turn) {
    for (std::size_t column = 0; column < columns; ++column) figures[column].push_back(measure(column));
  }
  for (std::size_t column = 0; column < columns; ++column) row.Add(column, Median(figures[column]));
}

}  // namespace tlm::bench
