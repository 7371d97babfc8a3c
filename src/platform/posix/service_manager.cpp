#include <cstddef>
#include <cstdlib>
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

std::string TakeVariable(const char* name) {
  std::string value = GetVariable(name).value_or("");
  SetVariable(name, "");
  return value;
}

}  // namespace

std::optional<ServiceManager> ServiceManager::Claim() {
  const std::string address = TakeVariable(kAddressVariable);
  const std::string process = TakeVariable("WATCHDOG_PID");
  const long long time = std::strtoll(TakeVariable("WATCHDOG_USEC").c_str(), nullptr, 10);
  if (address.empty()) return std::nullopt;
  const bool isWatched = time > 0 && (process.empty() || process == std::to_string(getpid()));
  return ServiceManager(address, isWatched ? std::optional(std::chrono::microseconds(time)) : std::nullopt);
}

void ServiceManager::Report(ServiceState state) const { Send(Message(state)); }

void ServiceManager::ReportAlive() const { Send("WATCHDOG=1"); }

void ServiceManager::Send(const char* message) const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (address_.size() >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, address_.data(), address_.size());
  if (address_.front() == '@') address.sun_path[0] = '\0';  // a name outside the file system
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());

  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return;
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  sendto(socket, message, std::strlen(message), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length);
  close(socket);
}

}  // namespace tlm::platform
