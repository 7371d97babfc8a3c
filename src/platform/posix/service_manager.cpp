#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/environment.h"
#include "platform/service.h"

namespace tlm::platform {

namespace {

constexpr char kAddressVariable[] = "NOTIFY_SOCKET";
constexpr timeval kPatience = {1, 0};

const char* Message(ServiceState state) {
  switch (state) {
    case ServiceState::StartPending:
      return "STATUS=start pending";
    case ServiceState::Running:
      return "READY=1";
    case ServiceState::StopPending:
      return "STOPPING=1";
    case ServiceState::Stopped:
      break;
  }
  return "STATUS=stopped";
}

}  // namespace

std::optional<ServiceManager> ServiceManager::Claim() {
  const std::string address = GetVariable(kAddressVariable).value_or("");
  SetVariable(kAddressVariable, "");
  if (address.empty()) return std::nullopt;
  return ServiceManager(address);
}

void ServiceManager::Report(ServiceState state) const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (address_.size() >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, address_.data(), address_.size());
  if (address_.front() == '@') address.sun_path[0] = '\0';  // a name outside the file system
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());

  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return;
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  const char* message = Message(state);
  sendto(socket, message, std::strlen(message), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length);
  close(socket);
}

}  // namespace tlm::platform
