// The table of server directories, which survives a restart: a text file of three lines for each record.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tlm {

struct DirectoryRecord {
  std::string ClientHost;
  std::string Key;        // the directory as the client names it
  std::string Directory;  // the server's directory for it
};

// Where the table lies below a root.
std::string DirectoryRecordsPath(const std::string& tempRoot);

// The records in their order, up to the first that is torn or has an over-long line. No file is an empty table; the
// result is empty if there is a file that cannot be read, or that is another user's. A new table whose replacement was
// broken off is completed first.
std::optional<std::vector<DirectoryRecord>> ReadDirectoryRecords(const std::string& path);

// Puts these records in the place of the table at once, so that at any moment either the old or the new one stands
// there. If that cannot be done the old one stays.
void ReplaceDirectoryRecords(const std::string& path, const std::vector<DirectoryRecord>& records);

// True if the record is in the table now. Nothing is written for a record that would not be read back as it is, one
// with a line end in a name for instance, nor behind a torn one.
bool AppendDirectoryRecord(const std::string& path, const DirectoryRecord& record);

void RemoveDirectoryRecords(const std::string& path);

}  // namespace tlm
