#include "heat2d/deck.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>

namespace heat2d {
namespace {

constexpr int kMaxCellsOneWay = 5000;
constexpr int kMaxCells = 1'000'000;
constexpr int kMaxIterations = 10'000'000;
constexpr double kMaxPace = 3600;  // s

using Words = std::vector<std::string>;

std::string Quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string LowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// Reads a deck line by line. What is wrong with a line is thrown as a text, which ends that line and no other.
class DeckReader {
 public:
  explicit DeckReader(std::vector<DeckError>& errors) : errors_(errors) {}

  Deck Read(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      std::string line(text.substr(at, end - at));
      if (line.ends_with('\r')) line.pop_back();
      deck_.Lines.push_back(std::move(line));
      at = end + 1;
    }
    for (const std::string& line : deck_.Lines) {
      ++line_;
      Guarded([&] { ReadLine(line); });
    }
    CheckWhole();
    std::ranges::stable_sort(errors_, {}, &DeckError::Line);
    return std::move(deck_);
  }

 private:
  struct Keyword {
    std::string Form;  // how the line is to be written
    void (DeckReader::*Take)();
    bool Repeatable;
  };

  template <class Step>
  void Guarded(const Step& step) {
    try {
      step();
    } catch (const std::string& problem) {
      errors_.push_back({line_, problem});
    }
  }

  static const std::map<std::string, Keyword>& Keywords();

  void ReadLine(const std::string& line) {
    const std::string content = line.substr(0, line.find('#'));
    std::istringstream stream(content);
    words_.clear();
    for (std::string word; stream >> word;) words_.push_back(word);
    if (words_.empty()) return;

    const std::string name = LowerCase(words_[0]);
    const auto keyword = Keywords().find(name);
    if (keyword == Keywords().end()) {
      std::string known;
      for (const auto& [each, unused] : Keywords()) known += (known.empty() ? "" : ", ") + each;
      throw "unknown keyword " + Quoted(words_[0]) + "; there are " + known;
    }
    const auto [first, isFirst] = seen_.emplace(name, line_);
    if (!isFirst && !keyword->second.Repeatable) {
      throw Quoted(name) + " stands already in line " + std::to_string(first->second);
    }
    form_ = keyword->second.Form;
    next_ = 1;
    if (name == "title") {
      const std::size_t begin = content.find(words_[0]) + words_[0].size();
      const std::size_t from = content.find_first_not_of(" \t", begin);
      const std::size_t to = content.find_last_not_of(" \t");
      deck_.Title = from == std::string::npos ? "" : content.substr(from, to + 1 - from);
      return;
    }
    (this->*keyword->second.Take)();
    if (next_ < words_.size()) throw "nothing is expected behind " + Quoted(words_[next_ - 1]) + Expected();
  }

  std::string Expected() const { return "; the line reads: " + form_; }

  const std::string& NextWord() {
    if (next_ == words_.size()) throw "something is missing behind " + Quoted(words_.back()) + Expected();
    return words_[next_++];
  }

  double Number() {
    const std::string& word = NextWord();
    const char* const begin = word.data() + (word.starts_with('+') ? 1 : 0);
    const char* const end = word.data() + word.size();
    double value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value))
      throw Quoted(word) + " is not a number" + Expected();
    return value;
  }

  double Positive(const char* what) {
    const double value = Number();
    if (value <= 0) throw std::string(what) + " must be above 0, not " + words_[next_ - 1];
    return value;
  }

  int Count(const char* what, int limit) {
    const double value = Number();
    if (value != std::floor(value) || value < 1 || value > limit) {
      throw std::string(what) + " must be a whole number from 1 to " + std::to_string(limit) + ", not " +
          words_[next_ - 1];
    }
    return static_cast<int>(value);
  }

  std::optional<Rectangle> OptionalRectangle() {
    if (next_ == words_.size()) return std::nullopt;
    const std::string& word = NextWord();
    if (LowerCase(word) != "in") throw "expected \"in\" instead of " + Quoted(word) + Expected();
    Rectangle where;
    where.Left = Number();
    where.Bottom = Number();
    where.Right = Number();
    where.Top = Number();
    if (where.Left >= where.Right || where.Bottom >= where.Top) {
      throw std::string("the rectangle is empty: X1 must be above X0, and Y1 above Y0");
    }
    return where;
  }

  void TakeTitle() {}
  void TakeSize() {
    deck_.Width = Positive("the width");
    deck_.Height = Positive("the height");
  }
  void TakeGrid() {
    const int nx = Count("NX", kMaxCellsOneWay);
    const int ny = Count("NY", kMaxCellsOneWay);
    if (nx * ny > kMaxCells) throw "the grid has more than " + std::to_string(kMaxCells) + " cells";
    deck_.Nx = nx;
    deck_.Ny = ny;
  }
  void TakeConductivity() {
    Region region;
    region.Value = Positive("the conductivity");
    region.Where = OptionalRectangle();
    region.Line = line_;
    deck_.Conductivities.push_back(region);
  }
  void TakeSource() {
    Region region;
    region.Value = Number();
    region.Where = OptionalRectangle();
    region.Line = line_;
    deck_.Sources.push_back(region);
  }
  template <Side kSide>
  void TakeSide() {
    Condition& condition = deck_.Conditions[static_cast<std::size_t>(kSide)];
    const std::string& kind = NextWord();
    const std::string name = LowerCase(kind);
    if (name == "insulated") {
      condition.Type = Condition::Kind::Insulated;
    } else if (name == "temperature") {
      condition.Temperature = Number();
      condition.Type = Condition::Kind::Temperature;
    } else if (name == "flux") {
      condition.Flux = Number();
      condition.Type = Condition::Kind::Flux;
    } else if (name == "convection") {
      condition.Coefficient = Positive("the convection coefficient");
      condition.Temperature = Number();
      condition.Type = Condition::Kind::Convection;
    } else {
      throw "unknown boundary condition " + Quoted(kind) + Expected();
    }
  }
  void TakeTolerance() {
    deck_.Tolerance = Positive("the tolerance");
    if (deck_.Tolerance >= 1) throw std::string("the tolerance must be below 1");
  }
  void TakeIterations() { deck_.MaxIterations = Count("the number of iterations", kMaxIterations); }
  void TakePace() {
    const double pace = Number();
    if (pace < 0 || pace > kMaxPace) throw std::string("the pace must be 0 to 3600 seconds");
    deck_.Pace = pace;
  }

  // What no single line can tell.
  void CheckWhole() {
    line_ = std::max(line_, 1);
    for (const char* needed : {"size", "grid", "conductivity"}) {
      Guarded([&] {
        if (!seen_.contains(needed)) throw "the deck ends without a line " + Quoted(needed);
      });
    }
    if (!errors_.empty()) return;
    Guarded([&] {
      if (std::ranges::none_of(deck_.Conductivities, [](const Region& region) { return !region.Where; })) {
        throw std::string("the deck ends without a \"conductivity\" of the whole plate");
      }
    });
    Guarded([&] {
      const auto settles = [](const Condition& condition) {
        return condition.Type == Condition::Kind::Temperature || condition.Type == Condition::Kind::Convection;
      };
      if (std::ranges::none_of(deck_.Conditions, settles)) {
        throw std::string("no side has a temperature or convection, so that any temperature level would do");
      }
    });
    for (const std::vector<Region>* regions : {&deck_.Conductivities, &deck_.Sources}) {
      for (const Region& region : *regions) {
        line_ = region.Line;
        Guarded([&] { CheckCoversCells(region); });
      }
    }
  }

  void CheckCoversCells(const Region& region) const {
    if (!region.Where) return;
    const auto covers = [](double from, double to, double length, int cells) {
      const double step = length / cells;
      const double first = std::max(0.0, std::ceil(from / step - 0.5));  // index of the first centre that is not before
      return first < cells && (first + 0.5) * step <= to;
    };
    if (!covers(region.Where->Left, region.Where->Right, deck_.Width, deck_.Nx) ||
        !covers(region.Where->Bottom, region.Where->Top, deck_.Height, deck_.Ny)) {
      throw std::string(
          "the rectangle holds no cell centre: it lies outside the plate, or the grid is too coarse for it");
    }
  }

  std::vector<DeckError>& errors_;
  Deck deck_;
  int line_ = 0;
  std::map<std::string, int> seen_;  // keyword and the line where it stands first
  Words words_;
  std::size_t next_ = 0;
  std::string form_;
};

const std::map<std::string, DeckReader::Keyword>& DeckReader::Keywords() {
  static const std::string kConditions = " insulated | temperature T | flux Q | convection H T";
  static const std::map<std::string, Keyword> kKeywords = {
      {"title", {"title TEXT", &DeckReader::TakeTitle, false}},
      {"size", {"size WIDTH HEIGHT", &DeckReader::TakeSize, false}},
      {"grid", {"grid NX NY", &DeckReader::TakeGrid, false}},
      {"conductivity", {"conductivity K [in X0 Y0 X1 Y1]", &DeckReader::TakeConductivity, true}},
      {"source", {"source Q [in X0 Y0 X1 Y1]", &DeckReader::TakeSource, true}},
      {"left", {"left" + kConditions, &DeckReader::TakeSide<Side::Left>, false}},
      {"right", {"right" + kConditions, &DeckReader::TakeSide<Side::Right>, false}},
      {"bottom", {"bottom" + kConditions, &DeckReader::TakeSide<Side::Bottom>, false}},
      {"top", {"top" + kConditions, &DeckReader::TakeSide<Side::Top>, false}},
      {"tolerance", {"tolerance FRACTION", &DeckReader::TakeTolerance, false}},
      {"iterations", {"iterations COUNT", &DeckReader::TakeIterations, false}},
      {"pace", {"pace SECONDS", &DeckReader::TakePace, false}},
  };
  return kKeywords;
}

}  // namespace

const char* NameOf(Side side) {
  static constexpr std::array<const char*, 4> kNames = {"left", "right", "bottom", "top"};
  return kNames[static_cast<std::size_t>(side)];
}

std::string Describe(const Condition& condition) {
  char text[80] = "insulated";
  switch (condition.Type) {
    case Condition::Kind::Insulated:
      break;
    case Condition::Kind::Temperature:
      std::snprintf(text, sizeof text, "temperature %g", condition.Temperature);
      break;
    case Condition::Kind::Flux:
      std::snprintf(text, sizeof text, "flux %g", condition.Flux);
      break;
    case Condition::Kind::Convection:
      std::snprintf(text, sizeof text, "convection %g %g", condition.Coefficient, condition.Temperature);
      break;
  }
  return text;
}

Deck ReadDeck(std::string_view text, std::vector<DeckError>& errors) { return DeckReader(errors).Read(text); }

}  // namespace heat2d
