#include "dist/server_pool.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

#include "exec/temp_directories.h"
#include "libtsenv/runtime_identity.h"
#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/host.h"
#include "store/trace.h"

namespace tlm {

namespace {

using platform::File;

std::string PoolPath(const JobManagerState& state) REQUIRES(state.StateLock) {
  return state.TempRoot + Identity().RUNTIME_JM_DISTPOOL_STATUS_FILE;
}

std::shared_ptr<Peer> FindPeer(JobManagerState& state, const std::string& host) {
  const MAutoLock lock(state.StateLock);
  std::shared_ptr<Peer>& peer = state.PeerClientCache[host];
  if (!peer) peer = std::make_shared<Peer>(host);
  return peer;
}

// What asking a peer came to, as far as it came.
struct Load {
  bool IsConnected = false;
  bool IsKnown = false;
  std::uint32_t Count = 0;
  std::uint32_t Limit = 0;
};

void ConnectTo(QorJMClient& client, const std::string& host) {
  constexpr std::size_t kLongestHostName = 31;
  client.Connect(host, PeerPort(host));
  client.NoticeLoss();
  try {
    client.Hello(Identity().RUNTIME_JM_VERSION, platform::HostName().substr(0, kLongestHostName), 0);
  } catch (...) {  // A peer that has not said yes is none, also when nobody waits for its answer any more.
    client.Disconnect();
    throw;
  }
}

Load AskLoad(Peer& peer) {
  if (!peer.IsIdle()) return {};  // it has yet to answer something else
  // Kept by both sides: the answer may come when nobody waits for it any more.
  const auto load = std::make_shared<Load>();
  const std::uint64_t number = peer.Post(
      // A connection that was lost stays lost: behind a new one a handle might name another job.
      [load, host = peer.Host(), isFresh = peer.IsFresh()](QorJMClient& client) {
        if (isFresh) ConnectTo(client, host);
        load->IsConnected = true;
        load->Count = client.GetJobCount();
        load->Limit = client.GetLocalLimit();
        load->IsKnown = true;
      });
  return number != 0 && peer.Await(number, kPeerPatience) ? *load : Load{};
}

bool HasJobs(const JobManagerState& state, const std::shared_ptr<Peer>& peer) REQUIRES(state.StateLock) {
  return std::any_of(state.RemoteJobs.begin(), state.RemoteJobs.end(), [&](JobRef ref) REQUIRES(state.StateLock) {
    const Job* job = state.Jobs.Find(ref);
    return job && job->RemoteServer == peer;
  });
}

// In a root that others may write to, they could name hosts for the jobs to go to.
std::optional<std::string> ReadPoolFile(const std::string& path) {
  platform::FileStatus status;
  if (platform::GetFileStatus(path, status) != 0 || !status.IsOwn) return std::nullopt;
  return platform::ReadWholeFile(path);
}

// In place, in one piece. Blank lines count for nothing, so that at each moment there are the former names or the new
// ones, and a disk that is full leaves the former.
void WritePoolFile(const std::string& path, std::string text) {
  const std::string former = platform::ReadWholeFile(path).value_or("");
  std::optional<File> file = File::Open(path, File::Mode::Update);
  if (!file) return;
  const std::size_t size = text.size();
  text.resize(std::max(size, former.size()), '\n');
  const bool isWritten = file->Write(text);
  if (!isWritten) static_cast<void>(file->Seek(0) && file->Write(former));
  file->Resize(isWritten ? size : former.size());
}

}  // namespace

void ReadServerPool(JobManagerState& state) {
  const std::optional<std::string> content = ReadPoolFile(PoolPath(state));
  if (!content) return;
  state.ServerPool.clear();
  std::istringstream words(*content);
  for (std::string host; words >> host;) state.ServerPool.push_back(host);
}

void SetServerPool(JobManagerState& state, const StringList& hosts) {
  state.ServerPool = hosts;
  std::string text;
  for (const std::string& host : hosts) text += host + '\n';
  EnsureTempRoot(state);
  WritePoolFile(PoolPath(state), std::move(text));
}

std::shared_ptr<Peer> SelectBestServer(JobManagerState& state, const StringList& hosts) {
  Trace(state, "Trying...");
  constexpr std::uint32_t kNoCount = 0xFFFFFFFF;
  std::uint32_t lowest = kNoCount;
  std::shared_ptr<Peer> best;
  for (const std::string& host : hosts) {
    Trace(state, "%s", host.c_str());
    const std::shared_ptr<Peer> peer = FindPeer(state, host);
    const Load load = AskLoad(*peer);
    Trace(state, load.IsConnected ? "." : "!");
    if (!load.IsKnown) {
      if (load.IsConnected) Trace(state, "^");
      const MAutoLock lock(state.StateLock);
      if (!peer->IsIdle() || HasJobs(state, peer)) continue;
      ReleasePeerClient(state, peer);
      if (best != peer) continue;  // a host may be named twice
      best.reset();
      lowest = kNoCount;
    } else if (load.Count < lowest && load.Count < load.Limit) {
      best = peer;
      lowest = load.Count;
    }
  }
  if (best) {
    Trace(state, " BEST: %s\n", best->Host().c_str());
  } else {
    Trace(state, " ALL BUSY\n");
  }
  return best;
}

void ReleasePeerClient(JobManagerState& state, const std::shared_ptr<Peer>& peer) {
  const auto entry = state.PeerClientCache.find(peer->Host());
  if (entry != state.PeerClientCache.end() && entry->second == peer) state.PeerClientCache.erase(entry);
  peer->Close();
}

}  // namespace tlm
