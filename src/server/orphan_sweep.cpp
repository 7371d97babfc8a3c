#include "server/orphan_sweep.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

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

void ConnectBack(Session& session) {
  auto callback = std::make_shared<QorJMProxyClient>();
  callback->Connect(session.ClientHost, session.CallbackPort);
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
      ConnectBack(*session);
    }
  }
}

}  // namespace tlm
