// The search for a name that is not taken yet.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/file_system.h"
#include "util/mfile.h"
#include "util/multibyte.h"

namespace tlm {

namespace {

using Names = std::vector<std::string>;

// The decimal number at the start of the text, empty if there is none or if it has more than 32 bits. `end` is set
// behind it.
std::optional<std::uint32_t> LeadingNumber(std::string_view text, std::size_t& end) {
  std::uint32_t number = 0;
  const auto [behind, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  end = static_cast<std::size_t>(behind - text.data());
  return number;
}

// Cuts "~N" off the end of the text, if it stands there with a number above 0. Gives the number, 0 if there was none.
std::uint32_t CutNumber(std::string& text) {
  const std::size_t tilde = FindLastCharacter(text, "~");
  if (tilde == std::string::npos) return 0;
  const std::string_view behind = std::string_view(text).substr(tilde + 1);
  std::size_t end = 0;
  const std::uint32_t number = LeadingNumber(behind, end).value_or(0);
  if (number == 0 || end != behind.size()) return 0;
  text.resize(tilde);
  return number;
}

void CutSuffix(std::string& path) {
  const std::size_t dot = FindLastCharacter(path, ".");
  const std::size_t separator = FindLastSeparator(path);
  if (dot != std::string::npos && (separator == std::string::npos || dot > separator)) path.resize(dot);
}

bool IsTaken(const std::string& path) {
  platform::FileStatus status;
  return platform::GetFileStatus(path, status) == 0;
}

std::string UpperCased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return text;
}

// The highest N of the names that begin with stem~N, or 0.
std::uint64_t HighestNumber(const Names& names, const std::string& stem) {
  std::uint64_t highest = 0;
  const std::string numbered = stem + '~';
  for (const std::string& name : names) {
    if (!name.starts_with(numbered) || name.find("..") != std::string::npos) continue;
    std::size_t end = 0;
    const std::uint32_t number = LeadingNumber(std::string_view(name).substr(numbered.size()), end).value_or(0);
    highest = std::max<std::uint64_t>(highest, number);
  }
  return highest;
}

bool OccursInAny(const Names& upperCasedNames, const std::string& text) {
  return std::any_of(upperCasedNames.begin(), upperCasedNames.end(),
                     [&](const std::string& name) { return name.find(text) != std::string::npos; });
}

}  // namespace

void MFile::MakeUniqueName(const std::string& base, const std::string& suffix) {
  std::string text = base.empty() ? path_ : base;
  CutSuffix(text);
  const std::uint32_t ownNumber = CutNumber(text);
  std::uint64_t number = ownNumber == 0 ? 0 : ownNumber - 1;
  path_ = text;
  if (suffix.empty()) return NumberAfter(number);

  const std::string ending = suffix.front() == '.' ? suffix : '.' + suffix;
  std::string candidate = path_ + ending;
  while (IsTaken(candidate)) candidate = path_ + '~' + std::to_string(++number) + ending;
  path_ = candidate;
}

// Without a suffix a name counts as taken too if it is part of another one, in whatever case.
void MFile::NumberAfter(std::uint64_t number) {
  const std::string directory = DirectoryPart();
  Names names = platform::ListNames(directory.empty() ? "." : directory).value_or(Names());
  number = std::max(number, HighestNumber(names, Name()));
  for (std::string& name : names) name = UpperCased(name);
  const std::string numbered = path_ + '~';
  const std::string upperCasedName = UpperCased(Name()) + '~';
  do {
    ++number;
  } while (OccursInAny(names, upperCasedName + std::to_string(number)) || IsTaken(numbered + std::to_string(number)));
  path_ = numbered + std::to_string(number);
}

}  // namespace tlm
