#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/console.h"
#include "tlmctl/peer_load.h"

namespace tlm::ctl {

namespace {

int Print(const Settings& settings, const StringList& hosts) {
  if (settings.Json) {
    PrintJson({{"hosts", hosts}});
    return kGood;
  }
  for (const std::string& host : hosts) Say(host);
  if (hosts.empty()) Note(settings, "no peers: the server runs distributed jobs itself");
  return kGood;
}

int Get(const Settings& settings) {
  QorJMClient client;
  Connect(client, settings);
  return Print(settings, FetchPool(client));
}

int Set(const Settings& settings, const StringList& hosts) {
  for (const std::string& host : hosts) {
    if (!host.empty() && host.find_first_of(" \t\r\n\f\v:") == std::string::npos) continue;
    throw Failure{kUsage, '"' + host + "\" is no name of a host",
                  "a peer's port stands in the settings of the server, as TSQOR_JMPORT_HOST"};
  }
  QorJMClient client;
  Connect(client, settings);
  const StringList former = FetchPool(client);
  if (hosts.empty() && !former.empty()) {
    RequireConsent(settings, "Take all " + std::to_string(former.size()) + " peers out of the pool?");
  }
  client.SetServerPool(hosts);
  return Print(settings, FetchPool(client));
}

}  // namespace

void AddPool(Program& program) {
  const auto hosts = std::make_shared<StringList>();
  program.AddGroup("pool", "Show and set the peers to which the server gives distributed jobs");
  program.AddCommand({.Name = "pool get",
                      .Description = "Show the peers, in the order in which they are asked",
                      .Examples = {{"pool get", "a line each"}},
                      .Operations = {"GetServerPool", "ClientFileExists"}},
                     Get);
  CLI::App& set =
      program.AddCommand({.Name = "pool set",
                          .Description = "Replace the peers",
                          .Examples = {{"pool set beta gamma", "these two, beta first"}, {"pool set", "none any more"}},
                          .Operations = {"SetServerPool", "GetServerPool", "ClientFileExists"},
                          .Details = "The pool is kept across restarts. 'tlmctl doctor' tells which peers answer."},
                         [hosts](const Settings& settings) { return Set(settings, *hosts); });
  set.add_option("HOST", *hosts, "Names or addresses of the peers; none empties the pool")->type_name("HOST");
}

}  // namespace tlm::ctl
