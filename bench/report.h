// Figures of several rounds, and the table of them.
#pragma once

#include <deque>
#include <string>
#include <vector>

namespace tlm::bench {

// What a smaller figure is called in proportion to another one; none where bigger is better.
inline constexpr const char* kBiggerIsBetter = "";
inline constexpr const char* kTimesAsLong = "times as long";
inline constexpr const char* kTimesAsMuch = "times as much";

struct Target {
  enum class Of { Nothing, Ratio, Figure } What = Of::Nothing;
  double Value = 0;  // at least this where bigger is better, else at most
};

inline Target RatioTarget(double value) { return {Target::Of::Ratio, value}; }
inline Target FigureTarget(double value) { return {Target::Of::Figure, value}; }

inline constexpr std::size_t kOurs = 0;   // columns of a table
inline constexpr std::size_t kLimit = 1;  // and then the peers

double Median(std::vector<double> values);

class Row {
 public:
  Row(std::string measure, std::string unit, const char* proportion, Target target)
      : measure_(std::move(measure)), unit_(std::move(unit)), proportion_(proportion), target_(target) {}

  // One for each round. A column may have none at all.
  void Add(std::size_t column, double figure);
  std::vector<std::string> Cells(std::size_t columns) const;

 private:
  std::vector<double> Ratios() const;
  std::string SpreadText() const;
  std::string TargetText() const;

  std::string measure_;
  std::string unit_;
  std::string proportion_;
  Target target_;
  std::vector<std::vector<double>> figures_;  // by column
};

class Table {
 public:
  // Ours and the limit, and the peers, by the names that stand at the heads of their columns.
  Table(std::string title, std::vector<std::string> columns) : title_(std::move(title)), columns_(std::move(columns)) {}

  // Stays where it is.
  Row& Add(std::string measure, std::string unit, const char* proportion, Target target = {}) {
    return rows_.emplace_back(std::move(measure), std::move(unit), proportion, target);
  }
  void Print() const;

 private:
  std::string title_;
  std::vector<std::string> columns_;
  std::deque<Row> rows_;
};

}  // namespace tlm::bench
