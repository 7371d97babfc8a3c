#include "libtsenv/ini_file.h"

#include "libtsenv/settings_file.h"
#include "platform/host.h"

namespace tlm {
namespace {

constexpr std::size_t kLongestValue = 255;

void StripQuotes(std::string& text) {
  if (text.size() < 2 || text.front() != text.back()) return;
  if (text.front() == '"' || text.front() == '\'') text = text.substr(1, text.size() - 2);
}

}  // namespace

std::optional<std::string> IniVariable(const std::string& name) {
  const std::string program = platform::ExecutablePath();
  if (program.empty()) return std::nullopt;
  std::optional<std::string> value = FindSetting(program + ".ini", "ENVIRONMENT", name).Text;
  if (!value) return std::nullopt;
  StripQuotes(*value);
  if (value->size() > kLongestValue) value->resize(kLongestValue);
  return value->empty() ? std::nullopt : value;
}

}  // namespace tlm
