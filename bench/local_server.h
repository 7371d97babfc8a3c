// A job manager on a thread of this process.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "jm/qorjmclient.h"
#include "rpc/orpcthread.h"
#include "server/qorjmserver.h"
#include "util/immortal.h"

namespace tlm::bench {

class LocalServer {
 public:
  LocalServer() : thread_(std::make_unique<ORpcThread>()) {
    RegisterJobManager(State, *thread_);
    port_ = thread_->GetListenerPort(thread_->AddListener(0));
    runner_ = std::thread([this] { thread_->Run(); });
  }
  ~LocalServer() {
    Connect()->Shutdown();
    runner_.join();
  }
  LocalServer(const LocalServer&) = delete;
  LocalServer& operator=(const LocalServer&) = delete;

  std::unique_ptr<QorJMClient> Connect() const {
    auto client = std::make_unique<QorJMClient>();
    client->Connect("127.0.0.1", port_);
    return client;
  }

  JobManagerState& State = MakeImmortal<JobManagerState>();

 private:
  std::unique_ptr<ORpcThread> thread_;
  std::uint16_t port_ = 0;
  std::thread runner_;
};

}  // namespace tlm::bench
