// Rows of cells below titles.
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tlmctl/console.h"

namespace tlm::ctl {

struct Cell {
  std::string Text;
  Colour Tint = Colour::None;
};

// How a column gives way where a terminal is too narrow.
struct Column {
  static constexpr std::size_t kWhole = std::numeric_limits<std::size_t>::max();

  // Not explicit: a title alone is a column.
  Column(const char* title, int importance = 0, std::size_t narrowest = 8)
      : Title(title), Importance(importance), Narrowest(narrowest) {}

  std::string Title;
  int Importance;         // the least important is left out first, of equal ones the last
  std::size_t Narrowest;  // it is not cut below that; kWhole: not at all
};

// On a terminal every line fits: columns are cut, the widest first, down to their narrowest, and as many are left out
// as have no room even then.
class Table {
 public:
  explicit Table(std::vector<Column> columns);
  void Add(std::vector<Cell> row);  // a cell for each column
  // A line each, without line ends.
  std::vector<std::string> Lines() const;
  void Print() const;

 private:
  struct Shown {
    std::size_t Column;
    std::size_t Width;
  };
  std::vector<Shown> Arrange() const;
  std::size_t LeastWidth(const Shown& shown) const;

  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;  // the titles first
};

}  // namespace tlm::ctl
