#include "server/orphan_sweep.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "rpc/orpcerror.h"
#include "store/trace.h"

namespace tlm {

namespace {

std::vector<Session*> LiveSessions(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  return state.SessionList;
}

bool IsLive(JobManagerState& state, const Session* session) {
  const MAutoLock lock(state.StateLock);
  return std::find(state.SessionList.begin(), state.SessionList.end(), session) != state.SessionList.end();
}

void ConnectBack(JobManagerState& state, Session& session) {
  const std::chrono::seconds limit = state.Restrictions.LongestCallback;
  auto callback = std::make_shared<QorJMProxyClient>();
  try {
    if (limit.count() != 0) callback->GiveUpAt(std::chrono::steady_clock::now() + limit);
    callback->Connect(session.ClientHost, session.CallbackPort);
  } catch (const OrpcSocketError&) {
    if (limit.count() == 0) throw;
    Trace(state, "No callback to addr[%s] port[%d]\n", session.ClientHost.c_str(), session.CallbackPort);
    session.CallbackPort = 0;
    return;
  }
  callback->GiveUpAt(std::nullopt);
  session.Callback = std::move(callback);
}

void PingBack(JobManagerState& state, ORpcThread& thread, Session& session) {
  // A sweep further down the stack may be waiting in a ping already, and one call at a time is what a client can take.
  if (session.Callback.use_count() > 1) return;
  const std::shared_ptr<QorJMProxyClient> callback = session.Callback;
  if (callback->Ping() != ORpcClient::State::Closed || thread.IsStopped()) return;
  // It may have ended meanwhile, and another may have begun where it lay.
  if (!IsLive(state, &session) || session.Callback != callback) return;
  const std::string host = session.ClientHost;
  const std::uint16_t port = session.CallbackPort;
  thread.DeleteServer(session.Server);
  Trace(state, "Deleted orphaned session addr[%s] port[%d]\n", host.c_str(), port);
}

}  // namespace

void SweepOrphans(JobManagerState& state, ORpcThread& thread) {
  for (Session* session : LiveSessions(state)) {
    if (!IsLive(state, session)) continue;
    if (session->Callback) {
      PingBack(state, thread, *session);
    } else if (session->CallbackPort != 0) {
      ConnectBack(state, *session);
    }
  }
}

}  // namespace tlm
