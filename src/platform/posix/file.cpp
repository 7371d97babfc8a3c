#include "platform/file.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/uio.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/file_system.h"
#include "platform/posix/interrupt.h"
#include "platform/posix/path.h"

namespace tlm::platform {

namespace {

constexpr std::size_t kReadPiece = 0x10000;
constexpr std::size_t kMostPieces = 128;  // in one call of the system
constexpr mode_t kNewFile = 0666;         // less the umask

int FlagsOf(File::Mode mode) {
  switch (mode) {
    case File::Mode::Read:
      return O_RDONLY;
    case File::Mode::Truncate:
      return O_WRONLY | O_CREAT | O_TRUNC;
    case File::Mode::Append:
      return O_WRONLY | O_CREAT | O_APPEND;
    case File::Mode::Update:
      return O_WRONLY | O_CREAT;
  }
  return O_RDONLY;
}

// Who writes to a pipe waits for as long as its reader likes.
bool IsOpenable(int descriptor, File::Mode mode) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return true;
  return !S_ISDIR(status.st_mode) && (mode == File::Mode::Read || !S_ISFIFO(status.st_mode));
}

// Until all is moved, or no more is. Gives the number of bytes.
template <class Byte, class Move>
std::size_t MovePieces(std::span<const std::span<Byte>> pieces, Move move) {
  std::array<iovec, kMostPieces> entries;
  std::size_t total = 0;
  std::size_t within = 0;  // bytes of the first piece that have been moved
  while (!pieces.empty()) {
    const std::size_t count = std::min(pieces.size(), entries.size());
    for (std::size_t i = 0; i < count; ++i) {
      const std::span<Byte> piece = pieces[i].subspan(i == 0 ? within : 0);
      entries[i] = {const_cast<std::remove_const_t<Byte>*>(piece.data()), piece.size()};
    }
    const ssize_t moved = RetryInterrupted([&] { return move(entries.data(), static_cast<int>(count)); });
    if (moved <= 0) break;
    total += static_cast<std::size_t>(moved);
    within += static_cast<std::size_t>(moved);
    while (!pieces.empty() && within >= pieces.front().size()) {
      within -= pieces.front().size();
      pieces = pieces.subspan(1);
    }
  }
  return total;
}

}  // namespace

std::optional<File> File::Open(const std::string& path, Mode mode, Links links) {
  // Not to block is for a pipe that lies where a file is looked for: without it the open would wait for the other end.
  const int noFollow = links == Links::Refuse ? O_NOFOLLOW : 0;
  const int flags = FlagsOf(mode) | noFollow | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  const int descriptor = RetryInterrupted([&] { return open(SystemPath(path), flags, kNewFile); });
  if (descriptor < 0) return std::nullopt;
  File file(descriptor);
  if (!IsOpenable(descriptor, mode)) return std::nullopt;
  // Writing does wait, so that nothing is lost on a slow terminal.
  if (mode != Mode::Read) fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return file;
}

File::File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

File& File::operator=(File&& other) noexcept {
  File moved(std::move(other));  // takes what was open here along and closes it
  std::swap(descriptor_, moved.descriptor_);
  return *this;
}

File::~File() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::optional<std::size_t> File::Read(void* buffer, std::size_t length) {
  std::size_t total = 0;
  while (total < length) {
    const ssize_t count =
        RetryInterrupted([&] { return read(descriptor_, static_cast<char*>(buffer) + total, length - total); });
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    total += static_cast<std::size_t>(count);
  }
  return total;
}

std::size_t File::WriteSome(const void* data, std::size_t length) {
  std::size_t total = 0;
  while (total < length) {
    const ssize_t count =
        RetryInterrupted([&] { return write(descriptor_, static_cast<const char*>(data) + total, length - total); });
    if (count <= 0) break;
    total += static_cast<std::size_t>(count);
  }
  return total;
}

std::size_t File::ReadPieces(std::span<const std::span<unsigned char>> pieces) {
  return MovePieces(pieces, [this](const iovec* first, int count) { return readv(descriptor_, first, count); });
}

bool File::WritePieces(std::span<const std::span<const unsigned char>> pieces) {
  std::size_t all = 0;
  for (const auto& piece : pieces) all += piece.size();
  return all == MovePieces(pieces, [this](const iovec* first, int count) { return writev(descriptor_, first, count); });
}

bool File::Seek(std::uint64_t position) {
  if (position > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return false;
  return lseek(descriptor_, static_cast<off_t>(position), SEEK_SET) >= 0;
}

bool File::Resize(std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return false;
  return RetryInterrupted([&] { return ftruncate(descriptor_, static_cast<off_t>(size)); }) == 0;
}

bool File::Close() {
  // An interrupted close has closed all the same.
  return close(std::exchange(descriptor_, -1)) == 0 || errno == EINTR;
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
  std::optional<File> file = File::Open(path, File::Mode::Read);
  if (!file) return std::nullopt;
  std::string content;
  std::vector<char> piece(kReadPiece);
  for (;;) {
    const std::optional<std::size_t> count = file->Read(piece.data(), piece.size());
    if (!count) return std::nullopt;
    content.append(piece.data(), *count);
    if (*count < piece.size()) return content;
  }
}

bool EndsWithinLine(const std::string& path) {
  FileStatus status;
  char last = '\n';
  if (GetFileStatus(path, status) != 0 || status.Size == 0) return false;
  std::optional<File> file = File::Open(path, File::Mode::Read);
  return file && file->Seek(status.Size - 1) && file->Read(&last, 1) == 1U && last != '\n';
}

bool ReplaceWholeFile(const std::string& path, const std::string& until, std::string_view content) {
  RemoveFile(until);  // what a link of this name leads to is not to be written over
  std::optional<File> file = File::Open(until, File::Mode::Truncate);
  const bool replaced = file && file->Write(content) && file->Close() && RenameFile(until, path);
  if (!replaced) RemoveFile(until);
  return replaced;
}

void ReserveStandardStreams() {
  int descriptor = STDIN_FILENO;
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
  if (descriptor > STDERR_FILENO) close(descriptor);
}

}  // namespace tlm::platform
