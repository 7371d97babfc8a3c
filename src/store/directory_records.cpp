#include "store/directory_records.h"

#include <algorithm>
#include <string_view>

#include "libtsenv/runtime_identity.h"
#include "platform/file.h"
#include "platform/file_system.h"

namespace tlm {

namespace {

using platform::File;

constexpr std::size_t kLongestLine = 1023;

// A new table until it takes the place of the old one.
std::string ReplacementPath(const std::string& path) { return path + "~"; }

bool Exists(const std::string& path) {
  platform::FileStatus status;
  return platform::GetFileStatus(path, status) == 0;
}

// In a root that others may write to, they could name directories to be emptied.
bool IsOwn(const std::string& path) {
  platform::FileStatus status;
  return platform::GetFileStatus(path, status) == 0 && status.IsOwn;
}

struct Line {
  std::string_view Text;
  bool Ended = false;  // by a line end
};

Line TakeLine(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  const Line line{rest.substr(0, end), end != std::string_view::npos};
  rest.remove_prefix(line.Ended ? end + 1 : rest.size());
  return line;
}

// A directory is made with a name below the one that the table lies in, so an append that was broken off in its last
// line leaves a name that the table's own path begins with, or one that is not used.
bool IsTorn(const Line& directory, const std::string& path) {
  return directory.Text.empty() || (!directory.Ended && path.starts_with(directory.Text));
}

std::string TextOf(const DirectoryRecord& record) {
  return record.ClientHost + '\n' + record.Key + '\n' + record.Directory + '\n';
}

bool IsRecordable(const DirectoryRecord& record) {
  const auto isLine = [](const std::string& text) {
    return text.size() <= kLongestLine && text.find('\n') == std::string::npos;
  };
  return isLine(record.ClientHost) && isLine(record.Key) && isLine(record.Directory);
}

}  // namespace

std::string DirectoryRecordsPath(const std::string& tempRoot) { return tempRoot + Identity().RUNTIME_JM_STATUS_FILE; }

std::optional<std::vector<DirectoryRecord>> ReadDirectoryRecords(const std::string& path) {
  if (!Exists(path) && IsOwn(ReplacementPath(path))) platform::RenameFile(ReplacementPath(path), path);
  std::vector<DirectoryRecord> records;
  if (!Exists(path)) return records;
  const std::optional<std::string> content = platform::ReadWholeFile(path);
  if (!content || !IsOwn(path)) return std::nullopt;
  for (std::string_view rest = *content; !rest.empty();) {
    const Line host = TakeLine(rest);
    const Line key = TakeLine(rest);
    const Line directory = TakeLine(rest);
    if (IsTorn(directory, path)) break;
    if (std::max({host.Text.size(), key.Text.size(), directory.Text.size()}) > kLongestLine) break;
    records.push_back({std::string(host.Text), std::string(key.Text), std::string(directory.Text)});
  }
  return records;
}

void ReplaceDirectoryRecords(const std::string& path, const std::vector<DirectoryRecord>& records) {
  std::string text;
  for (const DirectoryRecord& record : records) text += TextOf(record);
  platform::ReplaceWholeFile(path, ReplacementPath(path), text);
}

bool AppendDirectoryRecord(const std::string& path, const DirectoryRecord& record) {
  if (!IsRecordable(record)) return false;
  const std::optional<std::string> before = platform::ReadWholeFile(path);
  if (before ? !before->empty() && before->back() != '\n' : Exists(path)) return false;
  std::optional<File> file = File::Open(path, File::Mode::Append);
  if (!file) return false;
  const bool written = file->Write(TextOf(record));
  if (!written) file->Resize(before ? before->size() : 0);
  return file->Close() && written;
}

void RemoveDirectoryRecords(const std::string& path) {
  platform::RemoveFile(path);
  platform::RemoveFile(ReplacementPath(path));
}

}  // namespace tlm
