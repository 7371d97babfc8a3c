#include "rpc/loop_sockets.h"

#include <algorithm>

#include "rpc/orpctrace.h"

namespace tlm {

namespace {

constexpr std::chrono::milliseconds kAcceptPause{100};
// No client can tell whether what it sent came so long before a look or after it.
constexpr std::chrono::microseconds kLookHolds{50};
constexpr std::chrono::milliseconds kLooksApart{10};
constexpr std::size_t kLeastGain = 0x40000;

}  // namespace

bool LoopSockets::AddListener(platform::Socket socket) {
  if (!poller_.Add(socket, Direction::Read)) return false;
  listeners_.push_back({socket});
  return true;
}

void LoopSockets::PauseListeners() { acceptAgain_ = Clock::now() + kAcceptPause; }

Connection* LoopSockets::AddConnection(platform::Socket socket) {
  return poller_.Add(socket) ? &connections_.Add(socket) : nullptr;
}

// What is known to be ready may not be the earliest that is.
void LoopSockets::Look(const Waited* waited, std::optional<std::chrono::microseconds> limit, bool mustBeFresh) {
  const ORpcTrace trace(2);
  if (HasWork(waited)) {
    if (!mustBeFresh && !trace.IsOn() && Clock::now() - lastLook_ < kLookHolds) return;
    limit = std::chrono::microseconds(0);
  } else if (ListenersPaused()) {
    limit = std::min<std::chrono::microseconds>(limit.value_or(kAcceptPause), kAcceptPause);
  }
  if (trace.IsOn()) trace.Print("select(%s,0,%x)=", DescribeWait(waited).c_str(), limit ? 1 : 0);
  const int result = poller_.Wait(events_, limit);
  lastLook_ = Clock::now();
  for (const platform::SocketEvent& event : events_) Note(event);
  if (trace.IsOn()) ORpcTrace::Continued(2).Print("%d\n", result < 0 ? result : static_cast<int>(CountReady(waited)));
}

bool LoopSockets::IsLookDue() const { return Clock::now() - lastLook_ >= kLooksApart; }

bool LoopSockets::HasWork(const Waited* waited) const {
  return connections_.FirstReady() || (waited && IsReady(*waited)) || (HasReadyListener() && !ListenersPaused());
}

std::size_t LoopSockets::ReadyListeners() const {
  const auto isReady = [](const Listener& listener) { return listener.Ready; };
  return static_cast<std::size_t>(std::count_if(listeners_.begin(), listeners_.end(), isReady));
}

bool LoopSockets::HasEndedConnection() const {
  const auto& all = connections_.All();
  return std::any_of(all.begin(), all.end(), [](const auto& entry) { return entry.second.Ended; });
}

bool LoopSockets::IsReady(const Waited& waited) const {
  const Connection* connection = connections_.Find(waited.Socket);
  // A peer that sends more before it has read the reply gets its attempts to take it used up.
  if (!connection || waited.Direction == Direction::Read) return connection && connection->Readable;
  return connection->Writable || connection->Readable || (connection->InCall && connection->InCall->HasMore());
}

void LoopSockets::Note(const platform::SocketEvent& event) {
  if (Connection* connection = connections_.Find(event.Which)) {
    connection->Readable |= event.Readable;
    connection->Writable |= event.Writable;
    connection->Ended |= event.Ended;
    connection->Urgent |= event.Urgent;
    return connections_.Changed(*connection);
  }
  for (Listener& listener : listeners_) listener.Ready |= listener.Socket == event.Which;
}

void LoopSockets::NoteReceived(platform::Socket socket, std::int64_t received, std::size_t wanted) {
  if (received == static_cast<std::int64_t>(wanted)) return;
  Connection* connection = connections_.Find(socket);
  if (!connection || connection->Ended || (connection->Urgent && received > 0)) return;
  connection->Readable = false;  // and its call is in progress
}

void LoopSockets::NoteSent(platform::Socket socket, std::int64_t sent, std::size_t wanted) {
  Connection* connection = connections_.Find(socket);
  if (!connection) return;
  if (sent > 0) connection->Due += static_cast<std::size_t>(sent);
  if (sent == static_cast<std::int64_t>(wanted)) return;
  connection->Writable = false;
  const std::size_t queued = platform::BytesQueued(socket);
  if (connection->SlowSince && connection->Due < queued + kLeastGain) return;
  connection->SlowSince = Clock::now();
  connection->Due = queued;
}

LoopSockets::Clock::duration LoopSockets::SlowFor(platform::Socket socket) const {
  const Connection* connection = connections_.Find(socket);
  return connection && connection->SlowSince ? Clock::now() - *connection->SlowSince : Clock::duration(0);
}

// What comes for a call further down the stack cannot be taken yet, and so is not waited for.
std::string LoopSockets::DescribeWait(const Waited* waited) const {
  DescriptorSet reading, writing;
  if (waited) (waited->Direction == Direction::Read ? reading : writing).push_back(waited->Socket);
  for (const auto& [number, connection] : connections_.All()) {
    if (!connection.Busy) reading.push_back(connection.Socket);
  }
  if (!ListenersPaused()) {
    for (const Listener& listener : listeners_) reading.push_back(listener.Socket);
  }
  platform::Socket highest = waited ? waited->Socket : 0;
  for (const platform::Socket socket : reading) highest = std::max(highest, socket);
  return std::to_string(highest + 1) + ',' + Describe(reading) + ',' + Describe(writing);
}

std::size_t LoopSockets::CountReady(const Waited* waited) const {
  const std::size_t listeners = ListenersPaused() ? 0 : ReadyListeners();
  return connections_.ReadyCount() + listeners + (waited && IsReady(*waited) ? 1 : 0);
}

}  // namespace tlm
