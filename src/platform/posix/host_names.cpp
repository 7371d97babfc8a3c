#include <cerrno>
#include <pwd.h>
#include <unistd.h>
#include <vector>

#include "platform/host.h"

namespace tlm::platform {

namespace {

constexpr std::size_t kHostNameSize = 255;
constexpr std::size_t kFirstEntrySize = 1024;
constexpr std::size_t kLargestEntrySize = 0x100000;

}  // namespace

std::string HostName() {
  char name[kHostNameSize + 1] = {};  // a name that is cut off comes without its end
  return gethostname(name, kHostNameSize) == 0 ? name : "";
}

std::string UserName() {
  for (std::size_t size = kFirstEntrySize; size <= kLargestEntrySize; size *= 2) {
    std::vector<char> texts(size);
    passwd entry = {};
    passwd* found = nullptr;
    const int error = getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found);
    if (error == ERANGE || error == EINTR) continue;
    return error == 0 && found != nullptr ? found->pw_name : "";
  }
  return "";
}

}  // namespace tlm::platform
