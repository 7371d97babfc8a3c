#include "tlmctl/server_key.h"

#include <algorithm>
#include <optional>

#include "platform/host.h"
#include "platform/socket.h"

namespace tlm::ctl {

namespace {

std::string InLowerCase(std::string text) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  std::transform(text.begin(), text.end(), text.begin(), lower);
  return text;
}

}  // namespace

std::string ServerKey(const std::string& address) {
  const std::size_t colon = std::min(address.rfind(':'), address.size());
  const std::string host = InLowerCase(address.substr(0, colon));
  const std::string port = address.substr(colon);
  std::optional<std::uint32_t> number = platform::ParseAddress(host);
  if (!number) number = platform::LookUpHost(host);
  if (!number) return host + port;
  return (platform::IsOwnAddress(*number) ? InLowerCase(platform::HostName()) : platform::FormatAddress(*number)) +
         port;
}

}  // namespace tlm::ctl
