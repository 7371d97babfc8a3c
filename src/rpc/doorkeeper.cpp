#include "rpc/doorkeeper.h"

#include <algorithm>
#include <string>

#include "rpc/orpctrace.h"

namespace tlm {

namespace {

// Between looks for connections that are late with their first call.
constexpr std::chrono::seconds kPause{1};
// So many more connections than the others may have come from this machine.
constexpr std::size_t kLocalReserve = 100;
// Bytes of the shortest call: a mark and a header.
constexpr std::uint32_t kShortestCall = 44;
// Without a byte, of a first call that is not whole while there are many calls on the stack.
constexpr std::chrono::seconds kPatienceInCrowds{1};

std::string NameOf(platform::SocketAddress peer) {
  return platform::FormatAddress(peer.Address) + ':' + std::to_string(peer.Port);
}

// Has made no call, and has none here that could be begun.
bool IsMereStranger(const Connection& connection) {
  return connection.StrangerSince && !connection.Busy && platform::BytesReadable(connection.Socket) < kShortestCall;
}

}  // namespace

bool Doorkeeper::Admits(platform::SocketAddress peer) {
  const auto refuse = [&](const char* reason) {
    const std::string name = NameOf(peer);
    ORpcTrace(1).Print("refused %s: %s\n", name.c_str(), reason);
    if (admission_.Trace) admission_.Trace("Refused connection of " + name + ": " + reason + '\n');
    return false;
  };
  const auto& ranges = admission_.Ranges;
  const auto holds = [&](const AddressRange& range) { return range.Contains(peer.Address); };
  if (!ranges.empty() && std::none_of(ranges.begin(), ranges.end(), holds)) return refuse("address not allowed");
  const std::size_t reserve = IsLoopback(peer.Address) ? kLocalReserve : 0;
  if (admission_.MostConnections == 0 || connections_.Size() < admission_.MostConnections + reserve) return true;
  // Who has shown to be a client goes before who has not.
  auto& all = connections_.All();
  const auto stranger =
      std::find_if(all.begin(), all.end(), [](const auto& entry) { return IsMereStranger(entry.second); });
  if (stranger == all.end()) return refuse("too many connections");
  DropStranger(stranger->second, "another takes its place");
  return true;
}

// Who sends less than a call takes no place on the stack.
void Doorkeeper::Prepare(platform::Socket socket) const {
  if (WaitsForWholeHeaders()) platform::WakeFor(socket, kShortestCall);
}

void Doorkeeper::Welcome(Connection& connection) {
  connection.StrangerSince = Clock::now();
  ++strangers_;
}

void Doorkeeper::LetIn(const Connection& connection) const {
  if (WaitsForWholeHeaders() && connection.StrangerSince) platform::WakeFor(connection.Socket, 1);
}

void Doorkeeper::Acquaint(Connection& connection) {
  if (connection.StrangerSince) --strangers_;
  connection.StrangerSince.reset();
}

void Doorkeeper::DropLateStrangers() {
  if (!NextLook() || Clock::now() < nextLook_) return;
  nextLook_ = Clock::now() + kPause / 4;
  const auto latest = Clock::now() - admission_.FirstCall;
  auto& all = connections_.All();
  for (auto next = all.begin(); next != all.end();) {
    Connection& connection = (next++)->second;
    if (connection.StrangerSince <= latest && IsMereStranger(connection)) DropStranger(connection, "no call in time");
  }
}

std::optional<std::chrono::microseconds> Doorkeeper::NextLook() const {
  if (strangers_ == 0 || admission_.FirstCall.count() == 0) return std::nullopt;
  return kPause;
}

void Doorkeeper::DropStranger(Connection& connection, const char* reason) {
  if (admission_.Trace) {
    const std::optional<platform::SocketAddress> peer = platform::RemoteAddress(connection.Socket);
    admission_.Trace("Dropped connection of " + (peer ? NameOf(*peer) : "one who has gone") + ": " + reason + '\n');
  }
  drop_(connection);
}

bool Doorkeeper::IsTooLong(const Connection* connection, Clock::duration silence, bool isCrowded) const {
  if (admission_.Silence.count() != 0 && silence >= admission_.Silence) return true;
  if (admission_.FirstCall.count() == 0 || !connection || !connection->StrangerSince) return false;
  return silence >= (isCrowded ? kPatienceInCrowds : admission_.FirstCall);
}

}  // namespace tlm
