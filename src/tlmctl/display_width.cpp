#include "tlmctl/display_width.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace tlm::ctl {

namespace {

struct Range {
  char32_t First, Last;
};

// Marks that combine with the character before them, and characters that are not seen.
constexpr Range kWithoutWidth[] = {
    {0x300, 0x36F},   {0x483, 0x489},   {0x591, 0x5BD},    {0x610, 0x61A},   {0x64B, 0x65F},   {0x900, 0x902},
    {0xE31, 0xE31},   {0xE34, 0xE3A},   {0xE47, 0xE4E},    {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200B, 0x200F},
    {0x202A, 0x202E}, {0x2060, 0x2064}, {0x20D0, 0x20FF},  {0x302A, 0x302D}, {0x3099, 0x309A}, {0xFE00, 0xFE0F},
    {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF}, {0xE0100, 0xE01EF}};
// Characters of East Asian scripts, and pictures.
constexpr Range kTwoWide[] = {{0x1100, 0x115F},   {0x231A, 0x231B},   {0x23E9, 0x23EC},   {0x2614, 0x2615},
                              {0x2648, 0x2653},   {0x26A1, 0x26A1},   {0x26BD, 0x26BE},   {0x2705, 0x2705},
                              {0x274C, 0x274C},   {0x2753, 0x2755},   {0x2795, 0x2797},   {0x2B50, 0x2B50},
                              {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0xA4CF},
                              {0xA960, 0xA97C},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},
                              {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},   {0x1F1E6, 0x1F1FF}, {0x1F300, 0x1F64F},
                              {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x1FA70, 0x1FAFF}, {0x20000, 0x3FFFD}};

template <std::size_t kCount>
bool IsIn(const Range (&ranges)[kCount], char32_t character) {
  const Range* after = std::upper_bound(std::begin(ranges), std::end(ranges), character,
                                        [](char32_t value, const Range& range) { return value < range.First; });
  return after != std::begin(ranges) && character <= std::prev(after)->Last;
}

std::size_t WidthOf(char32_t character) {
  if (IsIn(kWithoutWidth, character)) return 0;
  return IsIn(kTwoWide, character) ? 2 : 1;
}

// Takes the first character off a text that is not empty.
char32_t TakeCharacter(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  char32_t character = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  std::size_t taken = 1;
  for (; taken < length && taken < text.size() && (text[taken] & 0xC0) == 0x80; ++taken) {
    character = character << 6 | (text[taken] & 0x3F);
  }
  text.remove_prefix(taken == length ? length : 1);
  return taken == length ? character : U'?';
}

}  // namespace

std::size_t DisplayWidth(const std::string& text) {
  std::size_t width = 0;
  for (std::string_view rest = text; !rest.empty();) width += WidthOf(TakeCharacter(rest));
  return width;
}

std::string CutToWidth(const std::string& text, std::size_t width) {
  if (DisplayWidth(text) <= width) return text;
  if (width == 0) return "";
  std::string_view rest = text;
  std::size_t end = 0;
  for (std::size_t shown = 0; !rest.empty(); end = text.size() - rest.size()) {
    shown += WidthOf(TakeCharacter(rest));
    if (shown + 1 > width) break;
  }
  return text.substr(0, end) + '~';
}

}  // namespace tlm::ctl
