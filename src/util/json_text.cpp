#include "util/json_text.h"

#include <array>
#include <cstdio>

namespace tlm {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

// The range in which the second byte of a character lies: the rest would be longer forms of shorter characters, halves
// of UTF-16 pairs, and what is beyond the last character.
bool IsSecond(unsigned char first, unsigned char second) {
  const unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  return second >= low && second <= high;
}

// Bytes of the character beyond ASCII that the text begins with; 0 if it begins with none.
std::size_t LengthOfCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = first < 0xC2 || first > 0xF4 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (length == 0 || text.size() < length || !IsSecond(first, static_cast<unsigned char>(text[1]))) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

std::string Escaped(char c) {
  if (c == '"' || c == '\\') return {'\\', c};
  std::array<char, 8> digits;
  std::snprintf(digits.data(), digits.size(), "\\u%04x", static_cast<unsigned>(c));
  return digits.data();
}

}  // namespace

std::string JsonText(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const char c = text.front();
    std::size_t length = 1;
    if ((static_cast<unsigned char>(c) & 0x80) != 0) {
      length = LengthOfCharacter(text);
      quoted += length != 0 ? text.substr(0, length) : kReplacement;
      if (length == 0) length = 1;
    } else if (c < ' ' || c == '"' || c == '\\') {
      quoted += Escaped(c);
    } else {
      quoted += c;
    }
    text.remove_prefix(length);
  }
  return quoted + '"';
}

}  // namespace tlm
