#include "support/proxy.h"

#include <array>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tlm::test {

namespace {

constexpr int kLookInterval = 20;  // milliseconds

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool SendAll(int socket, const std::string& bytes) {
  return send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

Proxy::Proxy(std::uint16_t serverPort)
    : serverPort_(serverPort), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = Loopback(0);
  socklen_t length = sizeof address;
  bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
  listen(listener_, 10);
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Accept(); });
}

Proxy::~Proxy() {
  ends_ = true;
  thread_.join();
  close(listener_);
}

void Proxy::Cut() { ++cuts_; }

void Proxy::Forge(const std::string& text, const std::string& forged) {
  const std::lock_guard lock(mutex_);
  text_ = text;
  forged_ = forged;
}

void Proxy::Accept() {
  std::vector<std::thread> passing;
  while (!ends_) {
    pollfd entry = {listener_, POLLIN, 0};
    if (poll(&entry, 1, kLookInterval) <= 0) continue;
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(serverPort_);
    ++connections_;
    if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      passing.emplace_back([this, client, server] { Pass(client, server); });
    } else {
      close(client);
      close(server);
    }
  }
  for (std::thread& thread : passing) thread.join();
}

void Proxy::Pass(int client, int server) {
  const int cuts = cuts_;
  std::uint64_t sent = 0;
  std::array<char, 65536> buffer;
  while (!ends_ && cuts == cuts_) {
    std::array<pollfd, 2> entries{{{client, POLLIN, 0}, {server, POLLIN, 0}}};
    if (poll(entries.data(), entries.size(), kLookInterval) <= 0) continue;
    const bool fromClient = entries[0].revents != 0;
    const ssize_t length = recv(fromClient ? client : server, buffer.data(), buffer.size(), 0);
    if (length <= 0) break;
    std::string bytes(buffer.data(), static_cast<std::size_t>(length));
    if (fromClient) {
      fromClient_ += bytes.size();
      sent += bytes.size();
      if (cutAfter_ != 0 && sent > cutAfter_ && cutAfter_.exchange(0) != 0) break;
    } else {
      const std::lock_guard lock(mutex_);
      for (std::size_t at = text_.empty() ? std::string::npos : bytes.find(text_); at != std::string::npos;
           at = bytes.find(text_, at + 1)) {
        bytes.replace(at, text_.size(), forged_);
      }
    }
    if (!SendAll(fromClient ? server : client, bytes)) break;
  }
  close(client);
  close(server);
}

}  // namespace tlm::test
