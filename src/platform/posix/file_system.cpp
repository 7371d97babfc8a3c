#include "platform/file_system.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/interrupt.h"
#include "platform/posix/path.h"

namespace tlm::platform {

const int kNoSuchFile = ENOENT;

namespace {

constexpr mode_t kNewDirectory = 0777;  // less the umask
constexpr mode_t kPrivateDirectory = 0700;
constexpr uid_t kAdministrator = 0;

bool MayAccess(const std::string& path, int kind) {
  return faccessat(AT_FDCWD, SystemPath(path), kind, AT_EACCESS) == 0;
}

// A path under the root that the system's makers of unique names can fill in.
std::string NamePattern(const std::string& root, const std::string& prefix) {
  std::string pattern = root;
  if (!pattern.empty() && pattern.back() != kPathSeparator) pattern += kPathSeparator;
  return pattern + prefix + "XXXXXX";
}

}  // namespace

int GetFileStatus(const std::string& path, FileStatus& status) {
  struct stat found;
  if (stat(SystemPath(path), &found) != 0) return errno;
  status.Size = static_cast<std::uint64_t>(found.st_size);
  status.ModificationTime = found.st_mtime;
  status.IsDirectory = S_ISDIR(found.st_mode);
  status.IsOwn = found.st_uid == geteuid() || found.st_uid == kAdministrator;
  status.IsRegular = S_ISREG(found.st_mode);
  return 0;
}

bool IsLink(const std::string& path) {
  struct stat found;
  return lstat(SystemPath(path), &found) == 0 && S_ISLNK(found.st_mode);
}

bool IsWritable(const std::string& path) { return MayAccess(path, W_OK); }

bool SetOwnerWritable(const std::string& path, bool writable) {
  struct stat found;
  if (stat(SystemPath(path), &found) != 0) return false;
  const mode_t former = found.st_mode & 07777;
  const mode_t wanted = writable ? former | S_IWUSR : former & ~static_cast<mode_t>(S_IWUSR);
  return chmod(SystemPath(path), wanted) == 0;
}

bool IsExecutableFile(const std::string& path) {
  struct stat found;
  return stat(SystemPath(path), &found) == 0 && S_ISREG(found.st_mode) && MayAccess(path, X_OK);
}

bool RemoveFile(const std::string& path) { return unlink(SystemPath(path)) == 0; }

bool RemoveEmptyDirectory(const std::string& path) { return rmdir(SystemPath(path)) == 0; }

bool RenameFile(const std::string& from, const std::string& to) {
  return rename(SystemPath(from), SystemPath(to)) == 0;
}

bool MakeDirectory(const std::string& path, bool privately) {
  return mkdir(SystemPath(path), privately ? kPrivateDirectory : kNewDirectory) == 0;
}

std::optional<std::vector<std::string>> ListNames(const std::string& directory) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(SystemPath(directory)), closedir);
  if (!stream) return std::nullopt;
  std::vector<std::string> names = {".", ".."};  // not every file system lists them itself
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  if (errno != 0) return std::nullopt;
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<std::string> MakeUniqueDirectory(const std::string& root, const std::string& prefix) {
  std::string path = NamePattern(root, prefix);
  if (mkdtemp(path.data()) == nullptr) return std::nullopt;
  return path;
}

std::optional<std::string> MakeUniqueFile(const std::string& root, const std::string& prefix) {
  std::string path = NamePattern(root, prefix);
  const int descriptor = RetryInterrupted([&] { return mkostemp(path.data(), O_CLOEXEC); });
  if (descriptor < 0) return std::nullopt;
  close(descriptor);
  return path;
}

std::string TemporaryDirectory() { return P_tmpdir; }

std::string CurrentDirectory() {
  const std::unique_ptr<char, void (*)(void*)> path(getcwd(nullptr, 0), std::free);
  return path ? path.get() : "";
}

bool ChangeDirectory(const std::string& path) { return chdir(SystemPath(path)) == 0; }

}  // namespace tlm::platform
