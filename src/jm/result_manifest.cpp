#include "jm/result_manifest.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>

#include "platform/environment.h"
#include "platform/file.h"
#include "platform/file_system.h"

namespace tlm {

namespace {

constexpr std::string_view kTag = "crc";
constexpr std::string_view kVersion = "1";
constexpr std::string_view kSeparators = ":;";
constexpr std::string_view kPathSigns("/\\\0", 3);  // a name with one of them lies elsewhere
constexpr std::int64_t kLargestSize = std::numeric_limits<std::uint32_t>::max();
constexpr std::string_view kWhiteSpace = " \n\r\t\f\v";

// A name in any encoding becomes one word of plain characters.
std::string HexOf(std::string_view name) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

unsigned DigitValue(char digit) { return static_cast<unsigned>(digit < 'a' ? digit - '0' : digit - 'a' + 10); }

std::string NameOf(std::string_view hex) {
  std::string name;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    name += static_cast<char>(DigitValue(hex[i]) << 4 | DigitValue(hex[i + 1]));
  }
  return name;
}

std::string AsToken(std::string text) {
  const auto separates = [](char c) {
    return kSeparators.find(c) != std::string_view::npos || kWhiteSpace.find(c) != std::string_view::npos;
  };
  std::replace_if(text.begin(), text.end(), separates, '_');
  return text;
}

std::vector<std::string_view> Tokens(std::string_view word) {
  std::vector<std::string_view> tokens;
  while (!word.empty()) {
    const std::size_t end = std::min(word.find_first_of(kSeparators), word.size());
    if (end > 0) tokens.push_back(word.substr(0, end));
    word.remove_prefix(std::min(end + 1, word.size()));
  }
  return tokens;
}

template <class Number>
Number NumberIn(std::string_view token) {
  Number value = 0;
  std::from_chars(token.data(), token.data() + token.size(), value);
  return value;
}

std::optional<ManifestEntry> ParseEntry(const std::string& directory, std::string_view word) {
  const std::vector<std::string_view> tokens = Tokens(word);
  if (tokens.size() < 7 || tokens[0] != kTag || tokens[1] != kVersion) return std::nullopt;
  const std::string name = NameOf(tokens[3]);
  if (name.find_first_of(kPathSigns) != std::string::npos) return std::nullopt;
  const auto size = std::min(NumberIn<std::int64_t>(tokens[4]), kLargestSize);
  return ManifestEntry{directory + name, static_cast<std::uint32_t>(size), NumberIn<std::int64_t>(tokens[5])};
}

// As it has come so far: a transfer that was broken off leaves it under another name.
std::string ReceivedPath(const std::string& path) {
  std::uint32_t size = 0;
  return MFile(path + ".tmp").GetSize(size) == 0 ? path + ".tmp" : path;
}

}  // namespace

std::string ManifestLine(const MFile& file, std::uint32_t size, std::int64_t date) {
  std::ostringstream line;
  line << kTag << ':' << kVersion << ':' << AsToken(file.Extension()) << ':' << HexOf(file.Name()) << ':' << size << ':'
       << date << ":0;\n";
  return line.str();
}

std::vector<ManifestEntry> ReadManifest(const FileTransferList& received) {
  std::vector<ManifestEntry> entries;
  const auto manifest = std::find_if(received.Items.begin(), received.Items.end(), [](const FileTransferItem& item) {
    return MFile(item.Destination).Extension() == ".crc";
  });
  if (manifest == received.Items.end()) return entries;
  const std::string directory = MFile(manifest->Destination).DirectoryPart();
  const std::string path = ReceivedPath(manifest->Destination);
  platform::FileStatus status;
  if (platform::GetFileStatus(path, status) != 0 || !status.IsRegular) return entries;
  std::istringstream words(platform::ReadWholeFile(path).value_or(""));
  for (std::string word; words >> word;) {
    if (auto entry = ParseEntry(directory, word)) entries.push_back(*std::move(entry));
  }
  return entries;
}

std::vector<std::string> CheckReceivedResults(const FileTransferList& received, bool all) {
  std::vector<std::string> shortFiles;
  if (platform::GetVariable("TSQOR_NO_RESULT_RECOVERY")) return shortFiles;
  for (const ManifestEntry& entry : ReadManifest(received)) {
    if (MFile(ReceivedPath(entry.Path)).Size() >= entry.Size) continue;
    shortFiles.push_back(entry.Path);
    if (!all) break;
  }
  return shortFiles;
}

}  // namespace tlm
