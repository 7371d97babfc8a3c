#include "tlmctl/table.h"

#include <algorithm>
#include <iostream>

#include "platform/terminal.h"
#include "tlmctl/display_width.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kGap = 2;

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
  std::vector<Cell> titles;
  for (const Column& column : columns_) titles.push_back({column.Title, Colour::Dim});
  rows_.push_back(std::move(titles));
}

void Table::Add(std::vector<Cell> row) {
  for (Cell& cell : row) cell.Text = Printable(std::move(cell.Text));
  rows_.push_back(std::move(row));
}

std::size_t Table::LeastWidth(const Shown& shown) const {
  return std::min(shown.Width, columns_[shown.Column].Narrowest);
}

std::vector<Table::Shown> Table::Arrange() const {
  std::vector<Shown> shown;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    shown.push_back({i, 0});
    for (const auto& row : rows_) shown[i].Width = std::max(shown[i].Width, DisplayWidth(row[i].Text));
  }
  const auto width = platform::TerminalWidth(platform::StandardStream::Output);
  if (!width) return shown;
  const auto room = static_cast<std::size_t>(*width);
  const auto total = [&](auto widthOf) {
    std::size_t sum = kGap * (shown.size() - 1);
    for (const Shown& each : shown) sum += widthOf(each);
    return sum;
  };
  while (shown.size() > 1 && total([this](const Shown& each) { return LeastWidth(each); }) > room) {
    shown.erase(std::min_element(shown.rbegin(), shown.rend(),
                                 [this](const Shown& one, const Shown& other) {
                                   return columns_[one.Column].Importance < columns_[other.Column].Importance;
                                 })
                    .base() -
                1);
  }
  if (shown.size() == 1) shown.front().Width = std::min(shown.front().Width, room);
  while (total([](const Shown& each) { return each.Width; }) > room) {
    const auto slack = [this](const Shown& each) { return each.Width > LeastWidth(each) ? each.Width : 0; };
    --std::max_element(shown.begin(), shown.end(), [&](const Shown& one, const Shown& other) {
        return slack(one) < slack(other);
      })->Width;
  }
  return shown;
}

std::vector<std::string> Table::Lines() const {
  const std::vector<Shown> shown = Arrange();
  std::vector<std::string> lines;
  for (const auto& row : rows_) {
    std::string line;
    std::size_t pending = 0;  // blanks
    for (const auto& [column, width] : shown) {
      const std::string text = CutToWidth(row[column].Text, width);
      line += std::string(pending, ' ') + Coloured(text, row[column].Tint);
      pending = width + kGap - DisplayWidth(text);
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

void Table::Print() const {
  for (const std::string& line : Lines()) std::cout << line << '\n';
  std::cout.flush();
}

}  // namespace tlm::ctl
