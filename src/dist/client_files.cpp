#include "dist/client_files.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "dist/directory_table.h"
#include "rpc/orpcerror.h"
#include "rpc/wire.h"
#include "util/mfile.h"

namespace tlm {

namespace {

void EnsureDirectoryMap(JobManagerState& state, Session& session) REQUIRES(state.StateLock) {
  if (session.DirectoryMap.empty()) ReloadDirectoryTable(state, session);
}

// The server's file for one of the client.
std::optional<MFile> ServerFile(const Session& session, const std::string& path) {
  MFile file(path);
  const auto mapped = session.DirectoryMap.find(file.DirectoryPart());
  if (mapped == session.DirectoryMap.end()) return std::nullopt;
  file.SetDirectory(mapped->second);
  return file;
}

bool HasSize(const MFile& file, std::uint32_t expected) {
  std::uint32_t size = 0;
  return file.Exists() && file.GetSize(size) == 0 && size == expected;
}

// Up to the next colon; those in front of it are passed over.
std::string_view TakeToken(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(':'), rest.size()));
  const std::size_t end = std::min(rest.find(':'), rest.size());
  const std::string_view token = rest.substr(0, end);
  rest.remove_prefix(end);
  return token;
}

// The number that the text begins with, behind blanks and a sign; 0 if there is none. Empty if it is too large.
template <class Number>
std::optional<Number> LeadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  if (text.starts_with('+')) text.remove_prefix(1);
  Number number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec == std::errc::result_out_of_range) return std::nullopt;
  return number;
}

struct ExpectedFile {
  std::uint32_t Size;
  std::string Path;
};

std::optional<ExpectedFile> ParseEntry(const std::string& entry) {
  std::string_view rest = entry;
  const std::string_view size = TakeToken(rest);
  const std::string_view date = TakeToken(rest);
  if (date.empty()) return std::nullopt;
  const std::uint32_t expected = LeadingNumber<std::uint32_t>(size).value_or(0);
  if (expected == 0 || !LeadingNumber<std::uint64_t>(date)) return std::nullopt;
  return ExpectedFile{expected, rest.empty() ? entry : std::string(rest.substr(1))};
}

std::string Answer(std::uint32_t found, const std::string& path) {
  std::string answer = std::to_string(found) + ":0:" + path;
  if (answer.size() > kMaxStringLength) throw kMarshalError;
  return answer;
}

}  // namespace

bool ClientFileExists(JobManagerState& state, Session& session, const std::string& path) {
  EnsureDirectoryMap(state, session);
  const std::optional<MFile> file = ServerFile(session, path);
  return file && file->Exists();
}

bool ClientFileMatches(JobManagerState& state, Session& session, const std::string& path, std::uint32_t size) {
  EnsureDirectoryMap(state, session);
  const std::optional<MFile> file = ServerFile(session, path);
  return file && HasSize(*file, size);
}

StringList MissingClientFiles(JobManagerState& state, Session& session, const StringList& files) {
  EnsureDirectoryMap(state, session);
  StringList missing;
  for (const std::string& entry : files) {
    const std::optional<ExpectedFile> expected = ParseEntry(entry);
    if (!expected) continue;
    const std::optional<MFile> file = ServerFile(session, expected->Path);
    if (!file) {
      missing.push_back(Answer(0, expected->Path));
    } else if (!HasSize(*file, expected->Size)) {
      missing.push_back(Answer(file->Exists() ? file->Size() : 0, expected->Path));
    }
  }
  return missing;
}

}  // namespace tlm
