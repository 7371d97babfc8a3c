// Between a client and a server: passes everything on, loses connections, and forges what the server says.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "support/raw_connection.h"

namespace tlm::test {
class Proxy {
 public:
  explicit Proxy(std::uint16_t serverPort);
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;
  ~Proxy();

  std::uint16_t Port() const { return listener_.Port(); }
  // Ends all connections that are counted.
  void Cut() { ++cuts_; }
  // Ends the first connection on which the client has sent so many bytes; only that one.
  void CutOnceAfter(std::uint64_t bytes) { cutAfter_ = bytes; }
  // In what the server says, one text becomes another of the same length.
  void Forge(const std::string& text, const std::string& forged);
  std::uint64_t BytesFromClient() const { return fromClient_; }
  int Connections() const { return connections_; }

 private:
  void Accept();
  void Pass(RawConnection client, RawConnection server, int cuts);
  // What can be passed on; what may be the beginning of the text is held back.
  std::string Forged(std::string bytes, std::string& held);

  const std::uint16_t serverPort_;
  RawListener listener_{FreePort()};
  std::atomic<bool> ends_ = false;
  std::atomic<int> cuts_ = 0;
  std::atomic<std::uint64_t> cutAfter_ = 0;
  std::atomic<std::uint64_t> fromClient_ = 0;
  std::atomic<int> connections_ = 0;
  std::mutex mutex_;
  std::string text_, forged_;  // guarded by mutex_
  std::thread thread_;
};
}  // namespace tlm::test
