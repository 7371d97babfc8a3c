#include "libtsenv/registry.h"

#include <algorithm>
#include <string_view>

#include "libtsenv/settings_file.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "platform/host.h"

namespace tlm {
namespace {

constexpr std::string_view kExpandableMark = "expand:";
constexpr std::string_view kNumberMark = "dword:";
constexpr std::string_view kDocumentsMark = "%MY_DOCUMENTS%";
constexpr std::string_view kSeparators = "/\\";
constexpr std::size_t kLongestString = kRegistryStringSize - 1;

RegistryValue ParseValue(const std::string& text) {
  if (text.starts_with(kExpandableMark)) {
    return {RegistryValue::Kind::Expandable, text.substr(kExpandableMark.size())};
  }
  if (text.starts_with(kNumberMark)) return {RegistryValue::Kind::Number, text.substr(kNumberMark.size())};
  return {RegistryValue::Kind::String, text};
}

// What stands in front of the mark is lost. Without a documents folder, or room for it, the mark stays.
std::string ReplaceDocumentsMark(const std::string& text) {
  const std::size_t mark = std::min(text.find("%MY_DOCUMENTS%/"), text.find("%MY_DOCUMENTS%\\"));
  if (mark == std::string::npos) return text;
  std::string path = platform::DocumentsFolder();
  if (path.empty()) return text;
  if (kSeparators.find(path.back()) == std::string_view::npos) path += platform::kPathSeparator;
  const std::size_t rest = text.find_first_not_of(kSeparators, mark + kDocumentsMark.size());
  if (rest != std::string::npos) path += text.substr(rest);
  return path.size() <= kLongestString ? path : text;
}

}  // namespace

RegistryAnswer QueryRegistry(RegistryHive hive, const std::string& key, const std::string& name) {
  const std::string file = hive == RegistryHive::User ? platform::UserRegistryFile() : platform::MachineRegistryFile();
  const SettingsAnswer found = FindSetting(file, key, name);
  RegistryAnswer answer{found.SectionExists, std::nullopt};
  if (found.Text) answer.Value = ParseValue(*found.Text);
  return answer;
}

bool ReadRegistryString(RegistryHive hive, const std::string& key, const std::string& name, std::string& text) {
  const RegistryAnswer answer = QueryRegistry(hive, key, name);
  if (!answer.Value || answer.Value->Type == RegistryValue::Kind::Number) return false;
  if (answer.Value->Data.size() > kLongestString) return true;
  text = ReplaceDocumentsMark(ExpandVariables(answer.Value->Data).substr(0, kLongestString));
  return true;
}

std::string ExpandVariables(const std::string& text) {
  std::string expanded;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = text[start] == '%' ? text.find('%', start + 1) : std::string::npos;
    const auto value =
        end == std::string::npos ? std::nullopt : platform::GetVariable(text.substr(start + 1, end - start - 1));
    if (value) {
      expanded += *value;
      start = end + 1;
    } else {
      // The second sign of an unknown name may be the first one of a known name.
      expanded += text[start++];
    }
  }
  return expanded;
}

}  // namespace tlm
