// How busy the servers of a pool are.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "jm/lists.h"
#include "tlmctl/connection.h"

namespace tlm::ctl {

struct PeerLoad {
  bool TakesJobs = false;  // of the release that the settings name
  std::uint32_t Count = 0;
  std::uint32_t Limit = 0;  // from which on it takes no jobs of others
};

// The peers of a server, also those that it has kept since before it was started.
StringList FetchPool(QorJMClient& client);

// Where the server that has this host in its pool is answered, as far as that can be told from here.
ServerAddress PeerAddress(const Settings& settings, const std::string& host);

inline constexpr std::size_t kMostPeersAsked = 64;

// Asks all at once, from here, but no more than those. Of each its load, empty if it does not answer within the
// patience.
std::vector<std::optional<PeerLoad>> AskPeers(const Settings& settings, const StringList& hosts,
                                              std::chrono::seconds patience);

}  // namespace tlm::ctl
