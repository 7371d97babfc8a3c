// What a file object asks of the file system, and does to it.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "platform/file_system.h"
#include "util/mfile.h"

namespace tlm {

namespace {

using platform::File;
using platform::FileStatus;

constexpr std::size_t kCopyPiece = 0x100000;
constexpr std::size_t kBytesLookedAt = 1024;

bool IsSignOfBinary(unsigned char byte, bool strict) {
  if (strict) return byte >= 128;
  return byte < 32 && std::isspace(byte) == 0;
}

// True if all of the source came and was written.
bool CopyInPieces(File& source, File& destination, std::vector<char>& buffer) {
  for (;;) {
    const std::optional<std::size_t> count = source.Read(buffer.data(), buffer.size());
    if (!count) {
      std::fputs("ERROR:In libfileutils::CopyTo\n", stdout);
      return false;
    }
    if (*count == 0) return destination.Close();
    if (!destination.Write(buffer.data(), *count)) return false;
  }
}

}  // namespace

bool MFile::Exists() const {
  FileStatus status;
  return !Name().empty() && platform::GetFileStatus(path_, status) == 0;
}

int MFile::GetSize(std::uint32_t& size) const {
  FileStatus status;
  const int error = platform::GetFileStatus(path_, status);
  size =
      error == 0
          ? static_cast<std::uint32_t>(std::min<std::uint64_t>(status.Size, std::numeric_limits<std::uint32_t>::max()))
          : 0;
  return error;
}

std::uint32_t MFile::Size() const {
  std::uint32_t size = 0;
  return GetSize(size) == 0 ? size : 0;
}

std::int64_t MFile::ModTime() const {
  FileStatus status;
  return platform::GetFileStatus(path_, status) == 0 ? status.ModificationTime : 0;
}

bool MFile::IsDirectory() const {
  FileStatus status;
  return platform::GetFileStatus(path_, status) == 0 && status.IsDirectory;
}

bool MFile::IsReadOnly() const {
  FileStatus status;
  return platform::GetFileStatus(path_, status) == 0 && !platform::IsWritable(path_);
}

bool MFile::LooksBinary(bool strict) const {
  std::optional<File> file = File::Open(path_, File::Mode::Read);
  if (!file) return false;
  char bytes[kBytesLookedAt];
  const std::optional<std::size_t> count = file->Read(bytes, sizeof bytes);
  if (!count) return false;
  const std::string_view start(bytes, *count);
  const auto isSign = [strict](char byte) { return IsSignOfBinary(static_cast<unsigned char>(byte), strict); };
  return std::any_of(start.begin(), start.end(), isSign) || start.find('\n') == std::string_view::npos;
}

bool MFile::SetReadOnly(bool readOnly) { return platform::SetOwnerWritable(path_, !readOnly); }

bool MFile::Remove() {
  if (!platform::RemoveFile(path_)) return false;
  path_.clear();
  return true;
}

bool MFile::Rename(const std::string& to) {
  if (!platform::RenameFile(path_, to)) return false;
  path_ = to;
  return true;
}

bool MFile::CopyTo(const std::string& destination) const {
  if (path_ == destination) return true;
  std::optional<File> source = File::Open(path_, File::Mode::Read);
  if (!source) return false;
  std::vector<char> buffer(kCopyPiece);
  std::optional<File> copy = File::Open(destination, File::Mode::Truncate);
  return copy && CopyInPieces(*source, *copy, buffer);
}

bool MFile::CopyFrom(const std::string& source) const { return MFile(source).CopyTo(path_); }

bool MFile::CopyToAtOnce(const std::string& destination) const {
  if (path_ == destination) return true;
  const std::optional<std::string> content = platform::ReadWholeFile(path_);
  if (!content) return false;
  std::optional<File> copy = File::Open(destination, File::Mode::Truncate);
  if (!copy) return false;
  const std::size_t written = copy->WriteSome(content->data(), content->size());
  if (written != content->size()) {
    std::printf("ERROR:In libfileutils::CopyTo. Tried to write %zu bytes, wrote %zu bytes\n", content->size(), written);
  }
  return true;
}

bool MFile::MakeTempName() {
  const std::optional<std::string> path = platform::MakeUniqueFile(platform::TemporaryDirectory(), "tq");
  if (path) path_ = *path;
  return path.has_value();
}

}  // namespace tlm
