#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/socket.h"

namespace tlm::platform {

namespace {

// A line of the system's table: number, local address, remote address, state. An address is the bytes of the number in
// network order and the port, both in hexadecimal digits.
std::optional<SocketAddress> ListenerOf(const std::string& line) {
  constexpr char kListens[] = "0A";
  std::istringstream words(line);
  std::string number, local, remote, state;
  words >> number >> local >> remote >> state;
  const std::size_t colon = local.find(':');
  if (state != kListens || colon != 8) return std::nullopt;
  return SocketAddress{static_cast<std::uint32_t>(std::stoul(local.substr(0, colon), nullptr, 16)),
                       static_cast<std::uint16_t>(std::stoul(local.substr(colon + 1), nullptr, 16))};
}

}  // namespace

std::optional<std::vector<std::uint32_t>> ListeningAddresses(std::uint16_t port) {
  std::ifstream table("/proc/net/tcp");
  if (!table) return std::nullopt;
  std::vector<std::uint32_t> addresses;
  for (std::string line; std::getline(table, line);) {
    const std::optional<SocketAddress> listener = ListenerOf(line);
    if (listener && listener->Port == port) addresses.push_back(listener->Address);
  }
  return addresses;
}

bool IsOwnAddress(std::uint32_t address) {
  const int trial = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (trial < 0) return false;
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = address;
  const bool can = bind(trial, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
  close(trial);
  return can;
}

}  // namespace tlm::platform
