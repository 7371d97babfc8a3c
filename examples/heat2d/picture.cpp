#include "heat2d/picture.h"

#include <array>
#include <string_view>

namespace heat2d {
namespace {

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;
constexpr int kScale = 2;

struct Glyph {
  char Character;
  std::array<std::uint8_t, kGlyphHeight> Rows;  // the leftmost column is the highest of five bits
};

constexpr std::array<Glyph, 14> kGlyphs = {{
    {'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    {'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    {'2', {0b01110, 0b10001, 0b00001, 0b00010, 0b00100, 0b01000, 0b11111}},
    {'3', {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
    {'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    {'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    {'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    {'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
    {'-', {0b00000, 0b00000, 0b00000, 0b11111, 0b00000, 0b00000, 0b00000}},
    {'+', {0b00000, 0b00100, 0b00100, 0b11111, 0b00100, 0b00100, 0b00000}},
    {'e', {0b00000, 0b00000, 0b01110, 0b10001, 0b11111, 0b10000, 0b01110}},
}};

const Glyph* FindGlyph(char character) {
  for (const Glyph& glyph : kGlyphs) {
    if (glyph.Character == character) return &glyph;
  }
  return nullptr;
}

}  // namespace

void Picture::Write(const std::string& number, int column, int row, Colour colour) {
  for (const char character : number) {
    if (const Glyph* const glyph = FindGlyph(character)) {
      for (int y = 0; y < kGlyphHeight * kScale; ++y) {
        for (int x = 0; x < kGlyphWidth * kScale; ++x) {
          const int bits = glyph->Rows[static_cast<std::size_t>(y / kScale)];
          const bool inside = column + x < Width() && row + y >= 0 && row + y < Height();
          if (inside && ((bits >> (kGlyphWidth - 1 - x / kScale)) & 1) != 0) At(column + x, row + y) = colour;
        }
      }
    }
    column += (kGlyphWidth + 1) * kScale;
  }
}

std::string Picture::Ppm() const {
  std::string text = "P6\n" + std::to_string(Width()) + " " + std::to_string(Height()) + "\n255\n";
  for (const Colour& pixel : pixels_) {
    text += static_cast<char>(pixel.Red);
    text += static_cast<char>(pixel.Green);
    text += static_cast<char>(pixel.Blue);
  }
  return text;
}

}  // namespace heat2d
