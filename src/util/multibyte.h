// Looking for characters in text of the locale's multi-byte encoding, where the byte of a separator or a dot can also
// be the last byte of a longer character. Bytes that form no character count as one each.
#pragma once

#include <cstddef>
#include <string_view>

namespace tlm {

// Position of the last character that is one of `characters`, all of them single bytes; npos if there is none.
std::size_t FindLastCharacter(std::string_view text, std::string_view characters);

// Both '/' and '\' separate the components of a path.
inline std::size_t FindLastSeparator(std::string_view path) { return FindLastCharacter(path, "/\\"); }
bool EndsInSeparator(std::string_view path);

}  // namespace tlm
