#include "tlmctl/peer_load.h"

#include "tlmctl/inquiry.h"

namespace tlm::ctl {

namespace {

Inquiry<PeerLoad> Ask(const Settings& settings, const ServerAddress& peer) {
  return Inquiry<PeerLoad>([settings, peer](QorJMClient& client) {
    client.Connect(peer.Host, peer.Port);
    PeerLoad load{true, client.GetJobCount(), client.GetLocalLimit()};
    load.TakesJobs = SayHello(client, settings);
    return load;
  });
}

}  // namespace

ServerAddress PeerAddress(const Settings& settings, const std::string& host) {
  // That name means the server itself, which has it in its pool.
  return host == "127.0.0.1" ? AddressOf(settings) : ServerAddress{host, PeerPort(host)};
}

std::vector<std::optional<PeerLoad>> AskPeers(const Settings& settings, const StringList& hosts,
                                              std::chrono::seconds patience) {
  std::vector<Inquiry<PeerLoad>> inquiries;
  inquiries.reserve(hosts.size());
  for (const std::string& host : hosts) inquiries.push_back(Ask(settings, PeerAddress(settings, host)));
  const auto end = std::chrono::steady_clock::now() + patience;
  std::vector<std::optional<PeerLoad>> loads;
  loads.reserve(hosts.size());
  for (const Inquiry<PeerLoad>& inquiry : inquiries) loads.push_back(inquiry.Await(end));
  return loads;
}

}  // namespace tlm::ctl
