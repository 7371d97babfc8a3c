#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "heat2d/picture.h"

namespace heat2d {
namespace {

constexpr int kLongSide = 840;  // of the plate; all lengths here are pixels
constexpr int kShortSide = 60;  // at least: a thin plate is drawn thicker than it is
constexpr int kMargin = 24;
constexpr int kBarWidth = 26;
constexpr int kBarHeight = 280;  // at least
constexpr int kLabelWidth = 130;
constexpr int kLabelHeight = 14;
constexpr int kLabelDistance = 24;
constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kInk = {40, 40, 40};
constexpr Colour kOutline = {255, 255, 255};

// From cold to hot, evenly spaced.
constexpr std::array<Colour, 9> kScale = {{{34, 40, 115},
                                           {38, 90, 180},
                                           {50, 148, 204},
                                           {110, 196, 194},
                                           {186, 224, 166},
                                           {248, 232, 130},
                                           {250, 176, 70},
                                           {232, 96, 44},
                                           {160, 20, 36}}};

Colour Mix(Colour from, Colour to, double share) {
  const auto mix = [share](std::uint8_t a, std::uint8_t b) {
    return static_cast<std::uint8_t>(std::lround(a + (b - a) * share));
  };
  return {mix(from.Red, to.Red), mix(from.Green, to.Green), mix(from.Blue, to.Blue)};
}

// 1, 2 or 5 times a power of ten: the least that is not below `least`.
double RoundStep(double least) {
  const double power = std::pow(10.0, std::floor(std::log10(least)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= least * (1 - 1e-9)) return factor * power;
  }
  return 10 * power;
}

// Which colour and which label belong to a temperature.
class Scale {
 public:
  Scale(const std::vector<double>& temperatures, int maxSteps) {
    const auto [least, greatest] = std::ranges::minmax(temperatures);
    least_ = least;
    range_ = greatest - least;
    uniform_ = !std::isfinite(range_) || range_ <= 1e-9 * std::max(std::abs(least), std::abs(greatest));
    step_ = uniform_ ? 1 : RoundStep(range_ / maxSteps);
  }
  Colour At(double temperature) const {
    const double last = kScale.size() - 1;
    // Not a number has no place on the scale.
    const double share = uniform_ || !std::isfinite(temperature) ? 0.5 : (temperature - least_) / range_;
    const double position = std::clamp(share, 0.0, 1.0) * last;
    const double below = std::min(std::floor(position), last - 1);
    const auto index = static_cast<std::size_t>(below);
    return Mix(kScale[index], kScale[index + 1], position - below);
  }
  bool Uniform() const { return uniform_; }
  double Least() const { return least_; }
  double Range() const { return range_; }
  double Step() const { return step_; }
  // How many isotherms lie at or below the temperature, up to a constant.
  double Level(double temperature) const { return uniform_ ? 0 : std::floor(temperature / step_); }

 private:
  double least_ = 0, range_ = 0, step_ = 1;
  bool uniform_ = true;
};

// The temperatures between the cells' centres, by linear interpolation; constant outside them.
class Field {
 public:
  Field(const Deck& deck, const std::vector<double>& temperatures) : deck_(deck), temperatures_(temperatures) {}
  // Positions as parts of the plate's width and height, from the lower left corner.
  double At(double x, double y) const {
    const Between column(x, deck_.Nx), row(y, deck_.Ny);
    const double below = column.Mix(Cell(column.First, row.First), Cell(column.Second, row.First));
    const double above = column.Mix(Cell(column.First, row.Second), Cell(column.Second, row.Second));
    return row.Mix(below, above);
  }

 private:
  struct Between {
    Between(double part, int cells) {
      const double position = std::clamp(part * cells - 0.5, 0.0, cells - 1.0);
      First = static_cast<int>(position);
      Second = std::min(First + 1, cells - 1);
      Share = position - First;
    }
    double Mix(double first, double second) const { return first + (second - first) * Share; }
    int First, Second;
    double Share;
  };
  double Cell(int i, int j) const {
    return temperatures_[static_cast<std::size_t>(j) * static_cast<std::size_t>(deck_.Nx) +
                         static_cast<std::size_t>(i)];
  }
  const Deck& deck_;
  const std::vector<double>& temperatures_;
};

struct Frame {
  int Left, Top, Width, Height;
};

void DrawBorder(Picture& picture, const Frame& frame) {
  for (int x = -1; x <= frame.Width; ++x) {
    picture.At(frame.Left + x, frame.Top - 1) = kInk;
    picture.At(frame.Left + x, frame.Top + frame.Height) = kInk;
  }
  for (int y = -1; y <= frame.Height; ++y) {
    picture.At(frame.Left - 1, frame.Top + y) = kInk;
    picture.At(frame.Left + frame.Width, frame.Top + y) = kInk;
  }
}

void DrawPlate(Picture& picture, const Frame& frame, const Field& field, const Scale& scale) {
  const auto at = [&](int x, int y) { return field.At((x + 0.5) / frame.Width, 1 - (y + 0.5) / frame.Height); };
  for (int y = 0; y < frame.Height; ++y) {
    for (int x = 0; x < frame.Width; ++x) {
      const double here = at(x, y);
      const double level = scale.Level(here);
      const bool isotherm = level != scale.Level(at(x + 1, y)) || level != scale.Level(at(x, y + 1));
      const Colour colour = scale.At(here);
      picture.At(frame.Left + x, frame.Top + y) = isotherm ? Mix(colour, kInk, 0.6) : colour;
    }
  }
}

// Dotted, so that it is not taken for an isotherm.
void DrawOutline(Picture& picture, const Frame& frame, const Deck& deck, const Rectangle& where) {
  const auto column = [&](double x) {
    return static_cast<int>(std::clamp(x / deck.Width, 0.0, 1.0) * (frame.Width - 1));
  };
  const auto row = [&](double y) {
    return static_cast<int>((1 - std::clamp(y / deck.Height, 0.0, 1.0)) * (frame.Height - 1));
  };
  const int left = column(where.Left), right = column(where.Right), top = row(where.Top), bottom = row(where.Bottom);
  const auto dot = [&](int x, int y) {
    if ((x + y) % 6 >= 4) return;
    Colour& pixel = picture.At(frame.Left + x, frame.Top + y);
    pixel = Mix(pixel, kOutline, 0.85);
  };
  for (int x = left; x <= right; ++x) {
    dot(x, top);
    dot(x, bottom);
  }
  for (int y = top; y <= bottom; ++y) {
    dot(left, y);
    dot(right, y);
  }
}

void DrawBar(Picture& picture, const Frame& frame, const Scale& scale) {
  const auto label = [&](double temperature, int y) {
    char text[24];
    std::snprintf(text, sizeof text, "%.6g", temperature);
    picture.Write(text, frame.Left + frame.Width + 10, frame.Top + y - kLabelHeight / 2, kInk);
  };
  for (int y = 0; y < frame.Height; ++y) {
    const Colour colour = scale.At(scale.Least() + scale.Range() * (1 - (y + 0.5) / frame.Height));
    for (int x = 0; x < frame.Width; ++x) picture.At(frame.Left + x, frame.Top + y) = colour;
  }
  if (scale.Uniform()) return label(scale.Least(), frame.Height / 2);
  const double first = std::ceil(scale.Least() / scale.Step());
  for (int i = 0;; ++i) {
    const double temperature = (first + i) * scale.Step();
    const double share = (temperature - scale.Least()) / scale.Range();
    if (!(share <= 1)) break;
    const int y = static_cast<int>((1 - share) * (frame.Height - 1));
    for (int x = 0; x < frame.Width + 4; ++x) {
      Colour& pixel = picture.At(frame.Left + x, frame.Top + y);
      pixel = Mix(pixel, kInk, 0.6);
    }
    label(temperature, y);
  }
}

}  // namespace

Picture DrawField(const Deck& deck, const std::vector<double>& temperatures) {
  const double longest = std::max(deck.Width, deck.Height);
  const auto pixels = [longest](double length) {
    return std::max(static_cast<int>(std::lround(length / longest * kLongSide)), kShortSide);
  };
  const int width = pixels(deck.Width), height = pixels(deck.Height);
  const int barHeight = std::max(height, kBarHeight);
  const Frame plate = {kMargin, kMargin + (barHeight - height) / 2, width, height};
  const Frame bar = {kMargin + width + kMargin, kMargin, kBarWidth, barHeight};
  const Scale scale(temperatures, std::min(barHeight / kLabelDistance, 16));

  Picture picture(bar.Left + bar.Width + kLabelWidth, barHeight + 2 * kMargin, kPaper);
  DrawPlate(picture, plate, Field(deck, temperatures), scale);
  for (const Region& region : deck.Conductivities) {
    if (region.Where) DrawOutline(picture, plate, deck, *region.Where);
  }
  DrawBorder(picture, plate);
  DrawBar(picture, bar, scale);
  DrawBorder(picture, bar);
  return picture;
}

}  // namespace heat2d
