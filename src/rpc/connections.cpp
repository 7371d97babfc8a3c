#include "rpc/connections.h"

#include <algorithm>

namespace tlm {

Connection& Connections::Add(platform::Socket socket) {
  ready_.reserve(all_.size() + 1);
  Connection& connection = all_[++last_];
  connection.Number = last_;
  connection.Socket = socket;
  bySocket_[socket] = &connection;
  return connection;
}

void Connections::Remove(Connection& connection) {
  std::erase(ready_, &connection);
  bySocket_.erase(connection.Socket);
  all_.erase(connection.Number);
}

Connection* Connections::Find(platform::Socket socket) const {
  const auto found = bySocket_.find(socket);
  return found == bySocket_.end() ? nullptr : found->second;
}

void Connections::Changed(Connection& connection) {
  const auto place = std::lower_bound(ready_.begin(), ready_.end(), &connection,
                                      [](const Connection* a, const Connection* b) { return a->Number < b->Number; });
  const bool isListed = place != ready_.end() && *place == &connection;
  const bool isReady = !connection.Busy && (connection.Readable || connection.Ahead);
  if (isReady && !isListed) ready_.insert(place, &connection);
  if (!isReady && isListed) ready_.erase(place);
}

}  // namespace tlm
