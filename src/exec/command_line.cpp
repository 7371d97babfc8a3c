#include "exec/command_line.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "platform/environment.h"

namespace tlm {

namespace {

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

void EndToken(std::string& token, std::vector<std::string>& tokens) {
  if (!token.empty()) tokens.push_back(std::exchange(token, {}));
}

// Reads up to the ';' that ends the command. Gives its place, or the buffer's length if there is none.
std::size_t ReadCommand(std::string_view buffer, std::vector<std::string>& tokens) {
  std::string token;
  char quote = '\0';
  bool escaped = false;
  std::size_t at = 0;
  for (; at < buffer.size(); ++at) {
    const char c = buffer[at];
    if (quote != '\0') {
      if (c == quote) {
        quote = '\0';
      } else {
        token += c;
      }
    } else if (escaped) {
      token += c;
      escaped = false;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '\\') {
      escaped = true;
    } else if (c == ';') {
      break;
    } else if (IsSpace(c)) {
      EndToken(token, tokens);
    } else {
      token += c;
    }
  }
  EndToken(token, tokens);
  return at;
}

// Up to and with the '='; empty if there is none.
std::string_view NamePart(std::string_view entry) { return entry.substr(0, entry.find('=') + 1); }

// Length of the UTF-8 sequence that the byte begins, 0 if it begins none.
std::size_t SequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

// Takes the first character off the text, which is not empty.
char32_t TakeCharacter(std::string_view& text) {
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = SequenceLength(first);
  char32_t character = length == 1 ? first : first & (0x7FU >> length);
  bool valid = length >= 1 && length <= text.size();
  for (std::size_t at = 1; valid && at < length; ++at) {
    const auto next = static_cast<unsigned char>(text[at]);
    valid = (next & 0xC0) == 0x80;
    character = character << 6 | (next & 0x3F);
  }
  valid =
      valid && character >= kSmallest[length] && character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
  text.remove_prefix(valid ? length : 1);
  return valid ? character : first;
}

void AppendUnit(std::string& wide, char32_t unit) {
  wide += static_cast<char>(unit & 0xFF);
  wide += static_cast<char>(unit >> 8);
}

}  // namespace

bool NextCommand(std::string_view& buffer, std::vector<std::string>& tokens) {
  tokens.clear();
  const std::size_t end = ReadCommand(buffer, tokens);
  if (end == buffer.size()) return false;
  buffer.remove_prefix(end + 1);
  const auto next = std::find_if_not(buffer.begin(), buffer.end(), IsSpace);
  buffer.remove_prefix(static_cast<std::size_t>(next - buffer.begin()));
  return true;
}

std::string JoinTokens(const std::vector<std::string>& tokens) {
  std::string line;
  for (const std::string& token : tokens) line.append(token).push_back(' ');
  return line;
}

std::vector<std::string> ChildEnvironment(const std::string& entry, const std::string& taskKey, std::int64_t parentId) {
  std::vector<std::string> entries;
  if (parentId != 0) entries.push_back("TS_ENTERPRISE_ENV_PARENT_ID=" + std::to_string(parentId));
  if (!taskKey.empty()) entries.push_back("TS_ENTERPRISE_ENV=" + taskKey);
  if (!entry.empty()) entries.push_back(entry);

  std::vector<std::string> inherited = platform::EnvironmentEntries();
  for (const std::string& own : entries) {
    const std::string_view name = NamePart(own);
    if (!name.empty()) std::erase_if(inherited, [name](const std::string& other) { return other.starts_with(name); });
  }
  std::move(inherited.begin(), inherited.end(), std::back_inserter(entries));
  return entries;
}

std::string FailureText(const std::string& commandLine) {
  const std::string text = "Couldn't execute " + commandLine + "\n";
  std::string wide;
  wide.reserve(2 * text.size());
  for (std::string_view rest = text; !rest.empty();) {
    const char32_t character = TakeCharacter(rest);
    if (character < 0x10000) {
      AppendUnit(wide, character);
    } else {
      AppendUnit(wide, 0xD800 + ((character - 0x10000) >> 10));
      AppendUnit(wide, 0xDC00 + ((character - 0x10000) & 0x3FF));
    }
  }
  return wide;
}

}  // namespace tlm
