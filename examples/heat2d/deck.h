// The input deck: what is to be analysed. README.md describes the text form.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace heat2d {

// Lengths in metres, from the plate's lower left corner.
struct Rectangle {
  double Left = 0, Bottom = 0, Right = 0, Top = 0;
  bool Contains(double x, double y) const { return x >= Left && x <= Right && y >= Bottom && y <= Top; }
};

struct Region {
  std::optional<Rectangle> Where;  // the whole plate if empty
  double Value = 0;                // conductivity in W/(m K), or heat source in W/m3
  int Line = 0;                    // where the deck says so
  bool Contains(double x, double y) const { return !Where || Where->Contains(x, y); }
};

enum class Side { Left, Right, Bottom, Top };
inline constexpr std::array<Side, 4> kSides = {Side::Left, Side::Right, Side::Bottom, Side::Top};
const char* NameOf(Side side);

struct Condition {
  enum class Kind { Insulated, Temperature, Flux, Convection };
  Kind Type = Kind::Insulated;
  double Temperature = 0;  // of the side, or of the medium that convection exchanges heat with
  double Flux = 0;         // W/m2 into the plate
  double Coefficient = 0;  // of convection, W/(m2 K)
};
std::string Describe(const Condition& condition);

struct Deck {
  std::string Title;
  double Width = 0, Height = 0;        // m
  int Nx = 0, Ny = 0;                  // cells
  std::vector<Region> Conductivities;  // a later one overrules an earlier one
  std::vector<Region> Sources;         // add up
  std::array<Condition, 4> Conditions;
  double Tolerance = 1e-8;  // to which part of its first value the residual has to fall
  int MaxIterations = 20000;
  double Pace = 0;  // least time of the solution in seconds
  std::vector<std::string> Lines;

  const Condition& At(Side side) const { return Conditions[static_cast<std::size_t>(side)]; }
};

struct DeckError {
  int Line = 0;  // counted from 1
  std::string Text;
};

// Whatever is wrong with the text goes into the errors, in the order of the lines; the deck is good only if there is
// none.
Deck ReadDeck(std::string_view text, std::vector<DeckError>& errors);

}  // namespace heat2d
