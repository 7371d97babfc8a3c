// What the lower layers need to know of a connected client.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "jm/qorjmproxyclient.h"
#include "rpc/orpcserver.h"
#include "store/job.h"

namespace tlm {

// Guarded by StateLock. A job is owned by the session whose host and port it names.
struct Session {
  std::map<JobRef, std::uint32_t> WatchOffsets;     // how far the output of each watched job was read, in bytes
  std::map<std::string, std::string> DirectoryMap;  // client directory to server directory
  std::string ClientHost;
  std::string InstallToken;
  bool Listening = false;
  bool Refreshed = false;
  JobRef AttachedJob = 0;        // the job whose process speaks on this connection
  std::uint16_t ClientPort = 0;  // of the client's end of the connection; 0 before Hello
  std::string InstallPath;       // empty: no job may be submitted
  std::shared_ptr<const Installation> Installed = std::make_shared<Installation>();  // what is there for its jobs
  std::uint16_t CallbackPort = 0;
  // For the thread of the server loop alone: the object that answers on the connection, and the connection back to the
  // client, none until the first sweep for orphans.
  const ORpcServer* Server = nullptr;
  std::shared_ptr<QorJMProxyClient> Callback;
};

}  // namespace tlm
