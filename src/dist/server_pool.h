// The other job managers that this one may hand jobs to.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "jm/lists.h"
#include "jm/peer.h"
#include "store/job_manager_state.h"

namespace tlm {

// Takes the host names of the pool file, words separated by white space, in the place of those in memory. Without a
// file these stay.
void ReadServerPool(JobManagerState& state) REQUIRES(state.StateLock);

// Changes the names in memory and, as far as it can be written, in the file.
void SetServerPool(JobManagerState& state, const StringList& hosts) REQUIRES(state.StateLock);

// How long this server waits for a peer's answer before it goes on with other things; the peer may go on with it.
inline constexpr std::chrono::seconds kPeerPatience{5};

// The least loaded of the hosts' job managers, the first of several alike. Null if all are busy or cannot be asked.
std::shared_ptr<Peer> SelectBestServer(JobManagerState& state, const StringList& hosts) EXCLUDES(state.StateLock);

// The next selection of this host connects anew. The jobs that still name the peer keep it, without a use.
void ReleasePeerClient(JobManagerState& state, const std::shared_ptr<Peer>& peer) REQUIRES(state.StateLock);

}  // namespace tlm
