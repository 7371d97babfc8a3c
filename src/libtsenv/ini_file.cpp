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
  return IniVariable(platform::ExecutablePath(), name);
}

std::optional<std::string> IniVariable(const std::string& executable, const std::string& name) {
  if (executable.empty()) return std::nullopt;
  std::optional<std::string> value = FindSetting(executable + ".ini", "ENVIRONMENT", name).Text;
  if (!value) return std::nullopt;
  StripQuotes(*value);
  if (value->size() > kLongestValue) value->resize(kLongestValue);
  return value->empty() ? std::nullopt : value;
}

}  // namespace tlm
