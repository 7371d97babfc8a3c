// Text files of [sections] with lines NAME=text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tlm {

struct SettingsAnswer {
  bool SectionExists = false;
  std::optional<std::string> Text;  // without the blanks around it
};

// Reads the file and looks for the name in the sections of that title. Case does not count in either; the first of two
// lines does. Lines that begin with ';' or '#' are comments. A file that cannot be read has no sections.
SettingsAnswer FindSetting(const std::string& file, std::string_view section, std::string_view name);

bool EqualWithoutCase(std::string_view left, std::string_view right);  // ASCII letters

}  // namespace tlm
