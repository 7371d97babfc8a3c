#include "load.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <sys/epoll.h>
#include <unistd.h>

#include "child.h"

namespace tlm::bench {

namespace {

constexpr double kWarmUp = 0.1;  // of the time, which is not measured

// Waits for any of the connections.
class Readiness {
 public:
  explicit Readiness(std::span<const Connection> connections)
      : poll_(static_cast<int>(Check(epoll_create1(EPOLL_CLOEXEC), "epoll"))), events_(connections.size()) {
    for (std::size_t i = 0; i < connections.size(); ++i) {
      epoll_event event{.events = EPOLLIN, .data = {.u64 = i}};
      Check(epoll_ctl(poll_, EPOLL_CTL_ADD, connections[i].Descriptor(), &event), "epoll");
    }
  }
  ~Readiness() { close(poll_); }
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  // Those that can be read, none after the time.
  std::span<const epoll_event> Await(double seconds) {
    const double whole = std::floor(std::max(seconds, 0.0));
    const timespec limit{static_cast<time_t>(whole), static_cast<long>((std::max(seconds, 0.0) - whole) * 1e9)};
    const int count = epoll_pwait2(poll_, events_.data(), static_cast<int>(events_.size()), &limit, nullptr);
    return {events_.data(), static_cast<std::size_t>(Check(count, "epoll"))};
  }

 private:
  int poll_;
  std::vector<epoll_event> events_;
};

void CheckReply(const std::string& reply, const Exchange& exchange) {
  if (reply == exchange.Reply) return;
  const auto [byte, expected] = std::mismatch(reply.begin(), reply.end(), exchange.Reply.begin(), exchange.Reply.end());
  throw std::runtime_error("a reply is not what it should be from byte " + std::to_string(byte - reply.begin()) +
                           " on");
}

}  // namespace

std::vector<Connection> ConnectAll(std::uint16_t port, std::size_t count, const Exchange& exchange) {
  std::vector<Connection> connections;
  while (connections.size() < count) CheckReply(connections.emplace_back(port).Call(exchange.Call), exchange);
  return connections;
}

double CallsInTurn(const Connection& connection, const Exchange& exchange, double seconds) {
  CheckReply(connection.Call(exchange.Call), exchange);
  std::string reply(exchange.Reply.size(), '\0');
  const auto callFor = [&](double time) {
    const double start = Now();
    for (std::size_t calls = 1;; ++calls) {
      connection.Send(exchange.Call);
      connection.Receive(reply.data(), reply.size());
      if (const double elapsed = Now() - start; elapsed >= time) return static_cast<double>(calls) / elapsed;
    }
  };
  callFor(seconds * kWarmUp);
  const double rate = callFor(seconds);
  CheckReply(reply, exchange);
  return rate;
}

double CallsSideBySide(std::span<const Connection> connections, const Exchange& exchange, double seconds) {
  constexpr double kPatience = 60;
  Readiness readiness(connections);
  for (const Connection& connection : connections) connection.Send(exchange.Call);
  std::string reply(exchange.Reply.size(), '\0');
  const auto callFor = [&](double time) {
    const double start = Now();
    for (std::size_t calls = 0;;) {
      const auto ready = readiness.Await(kPatience);
      Require(!ready.empty(), "no connection is answered any more");
      for (const epoll_event& event : ready) {
        connections[event.data.u64].Receive(reply.data(), reply.size());
        connections[event.data.u64].Send(exchange.Call);
      }
      calls += ready.size();
      if (const double elapsed = Now() - start; elapsed >= time) return static_cast<double>(calls) / elapsed;
    }
  };
  callFor(seconds * kWarmUp);
  const double rate = callFor(seconds);
  for (const Connection& connection : connections) {
    connection.Receive(reply.data(), reply.size());
    CheckReply(reply, exchange);
  }
  return rate;
}

std::string Pipeline(const Connection& connection, const std::string& calls, std::size_t callSize,
                     std::size_t replySize) {
  constexpr std::size_t kBatch = 25;  // of which two are under way
  const std::size_t count = calls.size() / callSize;
  std::string replies(count * replySize, '\0');
  const auto send = [&](std::size_t first) {
    if (first < count) connection.Send(std::string_view(calls).substr(first * callSize, kBatch * callSize));
  };
  send(0);
  for (std::size_t first = 0; first < count; first += kBatch) {
    send(first + kBatch);
    connection.Receive(replies.data() + first * replySize, std::min(kBatch, count - first) * replySize);
  }
  return replies;
}

void CallsAtRate(std::span<const Connection> connections, const Exchange& exchange, double rate, double seconds) {
  Readiness readiness(connections);
  std::string reply(exchange.Reply.size(), '\0');
  const auto total = static_cast<std::size_t>(rate * seconds);
  const double start = Now();
  const double end = start + seconds + 1;
  for (std::size_t sent = 0, received = 0; received < total;) {
    const double now = Now();
    Require(now < end, std::to_string(total - received) + " calls are not answered in time");
    for (; sent < total && start + static_cast<double>(sent) / rate <= now; ++sent) {
      connections[sent % connections.size()].Send(exchange.Call);
    }
    const double next = sent < total ? start + static_cast<double>(sent) / rate : end;
    for (const epoll_event& event : readiness.Await(next - Now())) {
      connections[event.data.u64].Receive(reply.data(), reply.size());
      ++received;
    }
  }
  CheckReply(reply, exchange);
}

}  // namespace tlm::bench
