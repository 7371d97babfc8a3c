#include "util/multibyte.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>

namespace tlm {

namespace {

// As mblen tells it, but with a state of the caller's own: that of mblen is shared by all threads.
std::size_t CharacterLength(std::string_view text, std::mbstate_t& state) {
  const std::size_t limit = std::min<std::size_t>(text.size(), MB_CUR_MAX);
  const std::size_t length = std::mbrlen(text.data(), limit, &state);
  if (length >= 1 && length <= limit) return length;
  state = {};
  return 1;
}

}  // namespace

std::size_t FindLastCharacter(std::string_view text, std::string_view characters) {
  std::size_t last = std::string_view::npos;
  std::mbstate_t state = {};
  for (std::size_t position = 0; position < text.size();) {
    const std::size_t length = CharacterLength(text.substr(position), state);
    if (length == 1 && characters.find(text[position]) != std::string_view::npos) last = position;
    position += length;
  }
  return last;
}

bool EndsInSeparator(std::string_view path) { return !path.empty() && FindLastSeparator(path) == path.size() - 1; }

}  // namespace tlm
