// The temperature field as a picture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "heat2d/deck.h"

namespace heat2d {

struct Colour {
  std::uint8_t Red, Green, Blue;
};

class Picture {
 public:
  Picture(int width, int height, Colour background)
      : width_(width), pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), background) {}
  int Width() const { return width_; }
  int Height() const { return static_cast<int>(pixels_.size()) / width_; }
  // Row 0 is at the top.
  Colour& At(int column, int row) {
    return pixels_[static_cast<std::size_t>(row) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(column)];
  }
  // Characters of "%g" alone; 14 pixels high, 12 per character. Row and column are the upper left corner; what
  // does not fit into the picture is cut off.
  void Write(const std::string& number, int column, int row, Colour colour);
  // As a binary PPM file.
  std::string Ppm() const;

 private:
  int width_;
  std::vector<Colour> pixels_;
};

// The plate in its proportions, isotherms at round values, outlines of the regions of another conductivity, and a
// colour bar with the isotherms' values.
Picture DrawField(const Deck& deck, const std::vector<double>& temperatures);

}  // namespace heat2d
