#include "report.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace tlm::bench {

namespace {

constexpr const char* kNothing = "-";

// Three digits or more, with commas between thousands.
std::string Number(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3, value);
  std::string result = text;
  for (std::size_t i = std::min(result.find('.'), result.size()); i > 3;) result.insert(i -= 3, ",");
  return result;
}

void PrintLine(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    std::cout << "| " << cells[i] << std::string(widths[i] - cells[i].size() + 1, ' ');
  }
  std::cout << "|\n";
}

}  // namespace

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

void Row::Add(std::size_t column, double figure) {
  if (figures_.size() <= column) figures_.resize(column + 1);
  figures_[column].push_back(figure);
}

std::vector<double> Row::Ratios() const {
  std::vector<double> ratios;
  if (figures_.size() <= kLimit) return ratios;
  for (std::size_t i = 0; i < figures_[kLimit].size(); ++i) {
    ratios.push_back(figures_[kOurs].at(i) / figures_[kLimit][i]);
  }
  return ratios;
}

std::string Row::SpreadText() const {
  std::vector<double> values = Ratios();
  if (values.empty()) values = figures_[kOurs];
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  return Number(*least) + " .. " + Number(*most);
}

std::string Row::TargetText() const {
  if (target_.What == Target::Of::Nothing) return kNothing;
  const bool isRatio = target_.What == Target::Of::Ratio;
  const double reached = Median(isRatio ? Ratios() : figures_[kOurs]);
  const bool met = proportion_.empty() ? reached >= target_.Value : reached <= target_.Value;
  return (proportion_.empty() ? "at least " : "at most ") + Number(target_.Value) + (isRatio ? "" : " " + unit_) +
         (met ? ": met" : ": missed");
}

std::vector<std::string> Row::Cells(std::size_t columns) const {
  const auto figure = [this](std::size_t column) {
    return column < figures_.size() && !figures_[column].empty() ? Number(Median(figures_[column])) + " " + unit_
                                                                 : kNothing;
  };
  const std::vector<double> ratios = Ratios();
  std::string ratio = ratios.empty() ? kNothing : Number(Median(ratios));
  if (!ratios.empty() && !proportion_.empty()) ratio += " " + proportion_;
  std::vector<std::string> cells{measure_, figure(kOurs), figure(kLimit), ratio, SpreadText(), TargetText()};
  for (std::size_t peer = kLimit + 1; peer < columns; ++peer) cells.push_back(figure(peer));
  return cells;
}

void Table::Print() const {
  std::vector<std::string> heads{"measure", columns_[kOurs], columns_[kLimit], "ratio", "spread", "target"};
  heads.insert(heads.end(), columns_.begin() + kLimit + 1, columns_.end());
  std::vector<std::vector<std::string>> lines{heads, std::vector<std::string>(heads.size())};
  for (const Row& row : rows_) lines.push_back(row.Cells(columns_.size()));

  std::vector<std::size_t> widths(heads.size());
  for (const auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  for (std::size_t i = 0; i < heads.size(); ++i) lines[1][i].assign(widths[i], '-');
  std::cout << "\n" << title_ << "\n\n";
  for (const auto& line : lines) PrintLine(line, widths);
  std::cout << std::flush;
}

}  // namespace tlm::bench
