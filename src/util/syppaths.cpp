#include "util/syppaths.h"

#include <atomic>
#include <cstring>
#include <cwchar>
#include <initializer_list>

#include "platform/file_system.h"
#include "util/syperror.h"

namespace tlm {
namespace {

std::atomic<int> fileSystem = platform::kPathSeparator == '/' ? sypUNIX : sypDOS;

// Steps by whole characters, since the second byte of one may look like a backslash.
bool EndsInBackslash(const char* path) {
  std::mbstate_t state{};
  bool backslash = false;
  for (std::size_t left = std::strlen(path); left > 0;) {
    std::size_t length = std::mbrlen(path, left, &state);
    if (length == 0 || length > left) {  // no character of this locale
      length = 1;
      state = {};
    }
    backslash = length == 1 && *path == '\\';
    path += length;
    left -= length;
  }
  return backslash;
}

int JoinPieces(std::initializer_list<const char*> pieces, char* buffer, int size) {
  std::size_t used = 0;
  for (const char* piece : pieces) {
    const std::size_t length = std::strlen(piece);
    const long long room = size - static_cast<long long>(used + length);
    if (room < 1) {
      *buffer = '\0';
      sypWarning(sypWhere(__FILE__, __LINE__), "Not enough room in buffer to hold string \"%s\": %d", piece,
                 static_cast<int>(room));
      return 0;
    }
    std::memcpy(buffer + used, piece, length + 1);
    used += length;
  }
  return 1;
}

}  // namespace

void sypSetFileSystem(int kind) { fileSystem = kind; }

int sypMakeFileSpec(const char* path, const char* file, char* buffer, int size) {
  if (path == nullptr || file == nullptr || buffer == nullptr || size <= 0) {
    sypWarning(sypWhere(__FILE__, __LINE__), kArgumentFailure);
    return 0;
  }
  *buffer = '\0';
  if (*file == '\0') return 0;
  switch (fileSystem) {
    case sypVMS:
      return JoinPieces({path, file}, buffer, size);
    case sypDOS:
      return JoinPieces({path, EndsInBackslash(path) ? "" : "\\", file}, buffer, size);
    case sypUNIX:
      return JoinPieces({path, "/", file}, buffer, size);
    default:
      sypWarning(sypWhere(__FILE__, __LINE__), kArgumentFailure);
      return 0;
  }
}

}  // namespace tlm
