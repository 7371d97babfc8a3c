// Calls by the thousand. A call and its reply are always the same bytes, so that the hot loops have nothing to make or
// to look at; whether the reply is right is checked before and after.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "connection.h"

namespace tlm::bench {

struct Exchange {
  std::string Call;
  std::string Reply;
};

// Makes a call on each, so that no crowd of connections waits to be accepted: the system may drop those for a second.
std::vector<Connection> ConnectAll(std::uint16_t port, std::size_t count, const Exchange& exchange);

// Calls per second on the connection, one after the other, for so many seconds.
double CallsInTurn(const Connection& connection, const Exchange& exchange, double seconds);
// Calls per second on all of the connections, with one call outstanding on each.
double CallsSideBySide(std::span<const Connection> connections, const Exchange& exchange, double seconds);

// Sends all the calls, with some fifty outstanding, and gives what comes back. Both sizes are those of one call.
std::string Pipeline(const Connection& connection, const std::string& calls, std::size_t callSize,
                     std::size_t replySize);

// Makes so many calls a second, evenly, on one connection after the other, for so many seconds. Throws if replies are
// still due a second later.
void CallsAtRate(std::span<const Connection> connections, const Exchange& exchange, double rate, double seconds);

}  // namespace tlm::bench
