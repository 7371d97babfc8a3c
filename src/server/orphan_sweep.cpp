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

using Clock = std::chrono::steady_clock;

// The loop stands still meanwhile. Where there is a limit, it does so for a tenth of the time at most.
constexpr int kRest = 9;

bool MayConnectBack(JobManagerState& state) {
  const MAutoLock lock(state.StateLock);
  return Clock::now() >= state.CallbacksAgain;
}

void GiveCallbackUp(JobManagerState& state, Session& session, Clock::duration time) {
  const MAutoLock lock(state.StateLock);
  Trace(state, "No callback to addr[%s] port[%d]\n", session.ClientHost.c_str(), session.CallbackPort);
  session.CallbackPort = 0;
  state.CallbacksAgain = Clock::now() + kRest * time;
}

void ConnectBack(JobManagerState& state, Session& session) {
  const std::chrono::seconds limit = state.Restrictions.LongestCallback;
  const bool isLimited = limit.count() != 0;
  if (isLimited && !MayConnectBack(state)) return;
  const Clock::time_point begin = Clock::now();
  auto callback = std::make_shared<QorJMProxyClient>();
  try {
    if (isLimited) callback->GiveUpAt(begin + limit);
    callback->Connect(session.ClientHost, session.CallbackPort);
  } catch (const OrpcSocketError&) {
    if (!isLimited) throw;
    return GiveCallbackUp(state, session, Clock::now() - begin);
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
