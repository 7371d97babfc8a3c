#include "tlmctl/peer_load.h"

#include <algorithm>
#include <iterator>

#include "tlmctl/inquiry.h"

namespace tlm::ctl {

namespace {

Inquiry<PeerLoad> Ask(const Settings& settings, const ServerAddress& peer, std::chrono::steady_clock::time_point end) {
  return Inquiry<PeerLoad>([settings, peer, end](QorJMClient& client) {
    client.GiveUpAt(end);
    client.Connect(peer.Host, peer.Port);
    PeerLoad load{true, client.GetJobCount(), client.GetLocalLimit()};
    load.TakesJobs = SayHello(client, settings);
    return load;
  });
}

}  // namespace

StringList FetchPool(QorJMClient& client) {
  StringList hosts;
  client.ClientFileExists("/");  // a question at which the server reads what it has kept
  client.GetServerPool({hosts});
  return hosts;
}

ServerAddress PeerAddress(const Settings& settings, const std::string& host) {
  // That name means the server itself, which has it in its pool.
  return host == "127.0.0.1" ? AddressOf(settings) : ServerAddress{host, PeerPort(host)};
}

std::vector<std::optional<PeerLoad>> AskPeers(const Settings& settings, const StringList& hosts,
                                              std::chrono::seconds patience) {
  std::vector<Inquiry<PeerLoad>> inquiries;
  const auto last = hosts.begin() + static_cast<std::ptrdiff_t>(std::min(hosts.size(), kMostPeersAsked));
  inquiries.reserve(kMostPeersAsked);
  const auto end = std::chrono::steady_clock::now() + patience;
  std::transform(hosts.begin(), last, std::back_inserter(inquiries), [&](const std::string& host) {  //
    return Ask(settings, PeerAddress(settings, host), end);
  });
  std::vector<std::optional<PeerLoad>> loads;
  loads.reserve(inquiries.size());
  for (const Inquiry<PeerLoad>& inquiry : inquiries) loads.push_back(inquiry.Await(end));
  return loads;
}

}  // namespace tlm::ctl
