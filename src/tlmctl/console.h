// What is said, and to whom: data goes to standard output, everything else to standard error.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tlmctl/exit_code.h"
#include "tlmctl/settings.h"

namespace tlm::ctl {

using Json = nlohmann::ordered_json;

// The version of all documents; it grows when a field changes its meaning or goes.
inline constexpr int kJsonSchema = 1;

// One document on a line of standard output.
void PrintJson(const Json& fields);

// For the person; with --json a document on standard error, with --quiet nothing.
void Note(const Settings& settings, const std::string& text);
void PrintFailure(const Settings& settings, const Failure& failure);

enum class Colour { None, Good, Bad, Busy, Dim };

// The text in the colour, where standard output can show it and NO_COLOR is not set.
std::string Coloured(const std::string& text, Colour colour);

// The text without line ends and escapes, which would do as they like with the terminal.
std::string Printable(std::string text);

// Columns of a terminal that the text takes, in UTF-8; characters of double width count once.
std::size_t DisplayWidth(const std::string& text);
// The text, or as much of it as the width holds.
std::string CutToWidth(const std::string& text, std::size_t width);

// Whether a person at a terminal can be asked.
bool MayAsk(const Settings& settings);
// Asks on standard error. True for yes, and where nobody can be asked.
bool Confirm(const Settings& settings, const std::string& question);
// The same; throws Failure for no.
void RequireConsent(const Settings& settings, const std::string& question);

struct Cell {
  std::string Text;
  Colour Tint = Colour::None;
};

// Titles and rows in columns. On a terminal, the widest column is cut until a row fits a line.
class Table {
 public:
  explicit Table(std::vector<std::string> titles);
  void Add(std::vector<Cell> row);
  // A line each, without line ends.
  std::vector<std::string> Lines() const;
  void Print() const;

 private:
  std::vector<std::size_t> Widths() const;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace tlm::ctl
