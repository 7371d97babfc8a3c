// Another job manager, to which this one is a client.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "jm/qorjmclient.h"

namespace tlm {

// One connection, and a thread of its own on which its calls are made, one after the other: a peer that does not answer
// holds up what waits for it and nobody else. Any thread may call. No lock that an operation needs may be held across
// Await: the peer may be this very server.
class Peer : public std::enable_shared_from_this<Peer> {
 public:
  // What is done with the connection. What it throws ends it and goes no further.
  using Work = std::function<void(QorJMClient& client)>;

  explicit Peer(std::string host) : host_(std::move(host)) {}
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const std::string& Host() const { return host_; }

  // Puts the work behind what waits already, and gives its number; 0 if it is not taken, after Close or for want of a
  // thread.
  std::uint64_t Post(Work work);
  // Waits for the end of that work. False if it has not come within the patience; the work goes on then.
  bool Await(std::uint64_t number, std::chrono::milliseconds patience);
  // True while no work waits or goes on.
  bool IsIdle() const;
  // True until the first work has ended.
  bool IsFresh() const;
  // The thread ends. Work that waits still is done without a connection, so that it fails and its poster learns of it.
  void Close();

 private:
  void WorkLoop();

  const std::string host_;
  QorJMClient client_;  // used by the thread alone
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Work> waiting_;
  std::uint64_t posted_ = 0;  // pieces of work so far
  std::uint64_t ended_ = 0;
  bool hasThread_ = false;
  bool closed_ = false;
};

}  // namespace tlm
