#include "support/proxy.h"

#include <array>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace tlm::test {
namespace {
constexpr std::chrono::milliseconds kLookInterval{20};

bool SendAll(const RawConnection& to, const std::string& bytes) {
  return send(to.Descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}
}  // namespace

Proxy::Proxy(std::uint16_t serverPort) : serverPort_(serverPort), thread_([this] { Accept(); }) {}

Proxy::~Proxy() {
  ends_ = true;
  thread_.join();
}

void Proxy::Forge(const std::string& text, const std::string& forged) {
  const std::lock_guard lock(mutex_);
  text_ = text;
  forged_ = forged;
}

void Proxy::Accept() {
  std::vector<std::thread> passing;
  while (!ends_) {
    if (!listener_.HasCallerWithin(kLookInterval)) continue;
    try {
      RawConnection client = listener_.Accept();
      passing.emplace_back(&Proxy::Pass, this, std::move(client), RawConnection(serverPort_), cuts_.load());
    } catch (const std::runtime_error&) {  // The server is not there, and the client's connection has gone.
    }
    ++connections_;
  }
  for (std::thread& thread : passing) thread.join();
}

void Proxy::Pass(RawConnection client, RawConnection server, int cuts) {
  std::uint64_t sent = 0;
  std::array<char, 65536> buffer;
  std::string held;
  while (!ends_ && cuts == cuts_) {
    std::array<pollfd, 2> entries{{{client.Descriptor(), POLLIN, 0}, {server.Descriptor(), POLLIN, 0}}};
    if (poll(entries.data(), entries.size(), static_cast<int>(kLookInterval.count())) <= 0) {
      if (!SendAll(client, std::exchange(held, {}))) break;
      continue;
    }
    const bool fromClient = entries[0].revents != 0;
    const ssize_t length = recv((fromClient ? client : server).Descriptor(), buffer.data(), buffer.size(), 0);
    if (length <= 0) break;
    std::string bytes(buffer.data(), static_cast<std::size_t>(length));
    if (fromClient) {
      fromClient_ += bytes.size();
      sent += bytes.size();
      if (cutAfter_ != 0 && sent > cutAfter_ && cutAfter_.exchange(0) != 0) break;
    } else {
      bytes = Forged(held + bytes, held);
    }
    if (!SendAll(fromClient ? server : client, bytes)) break;
  }
  SendAll(client, held);
}

std::string Proxy::Forged(std::string bytes, std::string& held) {
  const std::lock_guard lock(mutex_);
  held.clear();
  if (text_.empty()) return bytes;
  for (std::size_t at = 0; (at = bytes.find(text_, at)) != std::string::npos; at += text_.size()) {
    bytes.replace(at, text_.size(), forged_);
  }
  std::size_t start = bytes.size() - std::min(bytes.size(), text_.size() - 1);
  while (!text_.starts_with(std::string_view(bytes).substr(start))) ++start;
  held = bytes.substr(start);
  return bytes.substr(0, start);
}
}  // namespace tlm::test
