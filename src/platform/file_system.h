// Questions about the names in the file system, and changes to them. Nothing here throws or keeps anything open. A path
// with a zero byte in it names nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tlm::platform {

// Written wherever this system writes a separator of its own. Both '/' and '\' are accepted where a path is taken
// apart.
inline constexpr char kPathSeparator = '/';

struct FileStatus {
  std::uint64_t Size = 0;             // bytes
  std::int64_t ModificationTime = 0;  // seconds since 1970
  bool IsDirectory = false;
  bool IsOwn = false;      // belongs to the user of this process or to the administrator
  bool IsRegular = false;  // a file proper: no directory, device or pipe
};

extern const int kNoSuchFile;  // an error number

// 0 and the status, following links; else the system's error number.
[[nodiscard]] int GetFileStatus(const std::string& path, FileStatus& status);

bool IsLink(const std::string& path);  // a link to a file, to a directory or to nothing

bool IsWritable(const std::string& path);                       // exists, and this process may write to it
bool SetOwnerWritable(const std::string& path, bool writable);  // the owner's write permission
bool IsExecutableFile(const std::string& path);                 // a file, no directory, that this process may start

// A file, never a directory.
bool RemoveFile(const std::string& path);
bool RemoveEmptyDirectory(const std::string& path);
// Puts the file in the place of one that stands there, at once: there is no moment without either.
bool RenameFile(const std::string& from, const std::string& to);
// One directory; its parent must exist. For this user alone if so asked.
bool MakeDirectory(const std::string& path, bool privately = false);

// All names in the directory, "." and ".." among them, in byte order. Empty if it cannot be read.
std::optional<std::vector<std::string>> ListNames(const std::string& directory);

// Makes a new directory, or a new empty file, in the directory `root`, under a name that begins with `prefix` and that
// nothing else has. Gives its path.
std::optional<std::string> MakeUniqueDirectory(const std::string& root, const std::string& prefix);
std::optional<std::string> MakeUniqueFile(const std::string& root, const std::string& prefix);

// The system's directory for temporary files.
std::string TemporaryDirectory();

std::string CurrentDirectory();  // empty if it cannot be told
bool ChangeDirectory(const std::string& path);

}  // namespace tlm::platform
