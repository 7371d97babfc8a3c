#include "libtsenv/settings_file.h"

#include <algorithm>
#include <fstream>

namespace tlm {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

// The title, if the line is a section's head.
std::optional<std::string_view> SectionTitle(std::string_view line) {
  if (!line.starts_with('[') || !line.ends_with(']')) return std::nullopt;
  return Trim(line.substr(1, line.size() - 2));
}

}  // namespace

bool EqualWithoutCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

SettingsAnswer FindSetting(const std::string& file, std::string_view section, std::string_view name) {
  SettingsAnswer answer;
  std::ifstream stream(file, std::ios::binary);
  bool inside = false;
  bool firstLine = true;
  for (std::string text; !answer.Text && std::getline(stream, text); firstLine = false) {
    if (firstLine && text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
    const std::string_view line = Trim(text);
    if (line.starts_with(';') || line.starts_with('#')) continue;
    if (const auto title = SectionTitle(line)) {
      inside = EqualWithoutCase(*title, section);
      answer.SectionExists = answer.SectionExists || inside;
    } else if (const std::size_t equals = line.find('='); inside && equals != std::string_view::npos) {
      if (EqualWithoutCase(Trim(line.substr(0, equals)), name)) answer.Text = Trim(line.substr(equals + 1));
    }
  }
  return answer;
}

}  // namespace tlm
