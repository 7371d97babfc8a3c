// The settings of the machine and of the user, each kept in a text file: a section is a key with its full path, and a
// line NAME=text a string value, NAME=expand:text an expandable one, NAME=dword:7 a number. The file is read at each
// look-up.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tlm {

enum class RegistryHive { User, Machine };

struct RegistryValue {
  enum class Kind { String, Expandable, Number };
  Kind Type;
  std::string Data;
};

struct RegistryAnswer {
  bool KeyExists = false;  // also a key without values does
  std::optional<RegistryValue> Value;
};

// Key and value names are compared without case.
RegistryAnswer QueryRegistry(RegistryHive hive, const std::string& key, const std::string& name);

// Bytes of a string value, and of what it expands to, terminator included.
inline constexpr std::size_t kRegistryStringSize = 260;

// True if the value exists and is a string of either kind. Both kinds are expanded, and what stands behind a mark of
// the documents folder is put below that folder. A value that is too long leaves the text as it was.
bool ReadRegistryString(RegistryHive hive, const std::string& key, const std::string& name, std::string& text);

// Replaces each %NAME% by the value of that environment variable; an unknown one stays as it stands.
std::string ExpandVariables(const std::string& text);

}  // namespace tlm
