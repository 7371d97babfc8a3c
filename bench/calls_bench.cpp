// Null calls on one and on many connections, and beside them the least that the same bytes can cost: a plain server
// that answers 44 bytes with 28.
#include <array>
#include <benchmark/benchmark.h>
#include <stdexcept>
#include <vector>

#include "local_server.h"
#include "platform/socket.h"

namespace tlm::bench {

namespace {

constexpr std::size_t kCallSize = 44;
constexpr std::size_t kReplySize = 28;

void ReceiveAll(platform::Socket socket, std::size_t length) {
  std::array<char, kCallSize> buffer;
  while (length > 0) {
    const std::int64_t count = platform::Receive(socket, buffer.data(), length);
    if (count <= 0) throw std::runtime_error("echo broken off");
    length -= static_cast<std::size_t>(count);
  }
}

// One thread, one wait for all connections, one answer for each that is ready.
class EchoServer {
 public:
  EchoServer() : listener_(platform::OpenTcpSocket()) {
    platform::BindToPort(listener_, {});
    platform::Listen(listener_, 128);
    runner_ = std::thread([this] { Serve(); });
  }
  ~EchoServer() {
    platform::ShutdownSocket(listener_);
    runner_.join();
    platform::CloseSocket(listener_);
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

  platform::Socket Connect() const {
    const platform::Socket socket = platform::OpenTcpSocket();
    platform::Connect(socket, {*platform::ParseAddress("127.0.0.1"), platform::LocalAddress(listener_)->Port});
    platform::SendWithoutDelay(socket);
    return socket;
  }

 private:
  void Serve() {
    std::vector<platform::Socket> connections;
    while (true) {
      std::vector<platform::Socket> ready = connections;
      ready.push_back(listener_);
      platform::WaitForSockets(&ready, nullptr, std::nullopt);
      for (platform::Socket socket : ready) {
        platform::SocketAddress peer;
        if (socket != listener_) {
          Answer(socket, connections);
        } else if (const platform::Socket accepted = platform::AcceptSocket(listener_, peer); accepted >= 0) {
          platform::SendWithoutDelay(accepted);
          connections.push_back(accepted);
        } else {
          return;
        }
      }
    }
  }

  static void Answer(platform::Socket socket, std::vector<platform::Socket>& connections) {
    std::array<char, kCallSize> buffer{};
    if (platform::Receive(socket, buffer.data(), buffer.size()) > 0) {
      platform::Send(socket, buffer.data(), kReplySize);
      return;
    }
    platform::CloseSocket(socket);
    std::erase(connections, socket);
  }

  platform::Socket listener_;
  std::thread runner_;
};

void NullCalls(benchmark::State& state) {
  const LocalServer server;
  std::vector<std::unique_ptr<QorJMClient>> clients;
  for (std::int64_t i = 0; i < state.range(0); ++i) clients.push_back(server.Connect());
  for (auto _ : state) {
    for (const auto& client : clients) client->BeginCall(0).Flush();
    for (const auto& client : clients) client->EndCall();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(NullCalls)->Arg(1)->Arg(64)->UseRealTime();

void PlainEcho(benchmark::State& state) {
  const EchoServer server;
  std::vector<platform::Socket> sockets;
  for (std::int64_t i = 0; i < state.range(0); ++i) sockets.push_back(server.Connect());
  const std::array<char, kCallSize> call{};
  for (auto _ : state) {
    for (platform::Socket socket : sockets) platform::Send(socket, call.data(), call.size());
    for (platform::Socket socket : sockets) ReceiveAll(socket, kReplySize);
  }
  for (platform::Socket socket : sockets) platform::CloseSocket(socket);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(PlainEcho)->Arg(1)->Arg(64)->UseRealTime();

}  // namespace

}  // namespace tlm::bench
