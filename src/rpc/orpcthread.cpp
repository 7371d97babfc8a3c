#include "rpc/orpcthread.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/environment.h"
#include "platform/thread.h"
#include "rpc/orpcerror.h"
#include "rpc/orpcrecordio.h"

namespace tlm {

namespace {

constexpr int kBacklog = 10;
constexpr int kBlockedRetries = 500;
// How long the listeners rest after an accept that failed for want of descriptors or memory.
constexpr std::chrono::milliseconds kAcceptPause{100};
// Calls in progress on the stack. A peer that stops in the middle of a call keeps its frame, so that the stack could
// else be filled up by half calls. One takes about 2 KB of the usual 8 MB, four times as much with address checks.
constexpr std::size_t kDeepestNesting = 500;
constexpr std::chrono::milliseconds kNestingPause{1};
// Between looks for connections that are late with their first call.
constexpr std::chrono::seconds kStrangersPause{1};
// So many more connections than the others may have come from this machine.
constexpr std::size_t kLocalReserve = 100;
// Bytes of the shortest call: a mark and a header.
constexpr std::uint32_t kShortestCall = 44;
// Without a byte, of a first call that is not whole while there are many calls on the stack.
constexpr std::chrono::seconds kStrangersPatience{1};
// A call on top of others on the stack may wait so long for a byte to move.
constexpr std::chrono::seconds kStallLimit{60};

thread_local ORpcThread* currentThread = nullptr;

template <class Container>
class Membership {  // of one value in a set, for a scope
 public:
  Membership(Container& container, platform::Socket value) : container_(container), value_(value) {
    container_.insert(value_);
  }
  ~Membership() { container_.erase(value_); }
  Membership(const Membership&) = delete;
  Membership& operator=(const Membership&) = delete;

 private:
  Container& container_;
  platform::Socket value_;
};

// ORPC_STALL_LIMIT sets it, in seconds.
std::chrono::seconds StallLimit() {
  static const std::chrono::seconds limit = [] {
    const std::optional<std::string> text = platform::GetVariable("ORPC_STALL_LIMIT");
    const int seconds = text ? std::atoi(text->c_str()) : 0;
    return seconds > 0 ? std::chrono::seconds(seconds) : kStallLimit;
  }();
  return limit;
}

bool IsLocal(platform::Socket socket) {
  const auto peer = platform::RemoteAddress(socket);
  const auto own = platform::LocalAddress(socket);
  return peer && (IsLoopback(peer->Address) || (own && own->Address == peer->Address));
}

std::string NameOf(platform::SocketAddress peer) {
  return platform::FormatAddress(peer.Address) + ':' + std::to_string(peer.Port);
}

bool Contains(const DescriptorSet& set, platform::Socket socket) {
  return std::find(set.begin(), set.end(), socket) != set.end();
}

}  // namespace

ORpcThread::~ORpcThread() {
  Stop();
  CloseAll();
}

ORpcThread* ORpcThread::Current() { return currentThread; }

platform::Socket ORpcThread::AddListener(std::uint16_t port, std::uint32_t address) {
  const platform::Socket socket = platform::OpenTcpSocket();
  const int openError = platform::LastSocketError();
  ORpcTrace(2).Print("socket(...)=%d\n", socket);
  if (socket < 0) RaiseSocketError("ORpcThread::AddListener::socket", openError);

  const auto require = [socket](bool worked, const char* tag) {
    if (worked) return;
    const int error = platform::LastSocketError();
    platform::CloseSocket(socket);
    RaiseSocketError(tag, error);
  };
  platform::AllowAddressReuse(socket);
  require(platform::BindToPort(socket, {address, port}), "ORpcThread::AddListener::bind");
  require(platform::Listen(socket, kBacklog), "ORpcThread::AddListener::listen");
  require(platform::MakeNonBlocking(socket), "ORpcThread::AddListener::ioctlsocket");
  listeners_.push_back(socket);
  return socket;
}

void ORpcThread::Run() {
  currentThread = this;
  while (!stop_) {
    DescriptorSet readSet;
    DescriptorSet writeSet;
    PollOnce(0, readSet, writeSet);
  }
  CloseAll();
  currentThread = nullptr;
}

int ORpcThread::PollOnce(platform::Socket highest, DescriptorSet& readSet, DescriptorSet& writeSet) {
  AddToReadSet(highest, readSet);
  std::fflush(stdout);
  const int result = TracedSelect(highest + 1, &readSet, &writeSet, LongestSleep());
  Beat();
  if (stop_) return result;
  DropStrangers();
  if (result < 1) return result;
  ServeReady(readSet);
  AcceptReady(readSet);
  return result;
}

void ORpcThread::AddToReadSet(platform::Socket& highest, DescriptorSet& readSet) {
  const DescriptorSet given = readSet;
  const platform::Socket waitedFor = highest;
  const auto add = [&](platform::Socket socket) {
    if (!Contains(given, socket)) readSet.push_back(socket);
    highest = std::max(highest, socket);
  };
  // What comes for a call further down the stack cannot be taken yet, and would only wake this pass again and again.
  for (platform::Socket socket : connections_) {
    if (socket == waitedFor || !busy_.contains(socket)) add(socket);
  }
  if (!ListenersPaused()) std::for_each(listeners_.begin(), listeners_.end(), add);
}

std::optional<std::chrono::microseconds> ORpcThread::LongestSleep() const {
  if (ListenersPaused()) return kAcceptPause;
  std::optional<Clock::duration> sleep;
  const auto atMost = [&sleep](Clock::duration time) { sleep = std::min(sleep.value_or(time), time); };
  if (!busy_.empty()) atMost(StallLimit());
  if (!busy_.empty() && admission_.Silence.count() != 0) atMost(admission_.Silence);
  if (!strangers_.empty() && admission_.FirstCall.count() != 0) atMost(kStrangersPause);
  if (beat_) atMost(beatInterval_);
  if (!sleep) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::microseconds>(*sleep);
}

bool ORpcThread::IsTooLong(platform::Socket socket, std::chrono::steady_clock::time_point since) const {
  const std::size_t own = busy_.contains(socket) ? 1 : 0;
  const auto silence = Clock::now() - since;
  if (admission_.Silence.count() != 0 && silence >= admission_.Silence) return true;
  if (admission_.FirstCall.count() != 0 && strangers_.contains(socket)) {
    const bool crowded = busy_.size() > kDeepestNesting / 2;
    if (silence >= (crowded ? kStrangersPatience : admission_.FirstCall)) return true;
  }
  return busy_.size() > own && silence >= StallLimit();
}

bool ORpcThread::Admits(platform::SocketAddress peer) {
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
  if (admission_.MostConnections == 0 || connections_.size() < admission_.MostConnections + reserve) return true;
  // Who has shown to be a client goes before who has not.
  const auto stranger = std::find_if(connections_.begin(), connections_.end(),
                                     [this](platform::Socket socket) { return IsMereStranger(socket); });
  if (stranger == connections_.end()) return refuse("too many connections");
  DropStranger(*stranger, "another takes its place");
  return true;
}

bool ORpcThread::IsMereStranger(platform::Socket socket) const {
  return strangers_.contains(socket) && !busy_.contains(socket) && platform::BytesReadable(socket) < kShortestCall;
}

void ORpcThread::SetHeartbeat(std::chrono::microseconds interval, std::function<void()> beat) {
  beat_ = std::move(beat);
  beatInterval_ = interval / 2;
}

void ORpcThread::Beat() {
  if (!beat_ || Clock::now() - lastBeat_ < beatInterval_) return;
  lastBeat_ = Clock::now();
  beat_();
}

void ORpcThread::DropStrangers() {
  if (admission_.FirstCall.count() == 0) return;
  const auto latest = Clock::now() - admission_.FirstCall;
  std::vector<platform::Socket> overdue;
  for (const auto& [socket, accepted] : strangers_) {
    if (accepted <= latest && IsMereStranger(socket)) overdue.push_back(socket);
  }
  for (platform::Socket socket : overdue) DropStranger(socket, "no call in time");
}

void ORpcThread::DropStranger(platform::Socket socket, const char* reason) {
  if (admission_.Trace) {
    const std::optional<platform::SocketAddress> peer = platform::RemoteAddress(socket);
    admission_.Trace("Dropped connection of " + (peer ? NameOf(*peer) : "one who has gone") + ": " + reason + '\n');
  }
  DropConnection(socket);
  Forget(socket);
}

bool ORpcThread::ListenersPaused() const { return acceptAgain_ && std::chrono::steady_clock::now() < *acceptAgain_; }

void ORpcThread::ServeReady(const DescriptorSet& readSet) {
  DescriptorSet ready = readSet;
  std::sort(ready.begin(), ready.end());
  // A connection with a call in progress does not use the pass up, or one that sends while it waits further down the
  // stack would keep all later ones from being served.
  const auto next = std::find_if(connections_.begin(), connections_.end(), [&](platform::Socket socket) {
    return std::binary_search(ready.begin(), ready.end(), socket) && !busy_.contains(socket);
  });
  if (next == connections_.end()) return;
  if (busy_.size() >= kDeepestNesting) return platform::Sleep(kNestingPause);

  const platform::Socket socket = *next;
  try {
    ServeCall(socket);
  } catch (...) {  // Whatever went wrong with this connection, the others go on.
    DropConnection(socket);
    Forget(socket);
  }
}

void ORpcThread::Forget(platform::Socket socket) {
  const auto found = std::find(connections_.begin(), connections_.end(), socket);
  if (found == connections_.end()) {
    std::puts("CONNECTION NOT FOUND");
    return;
  }
  connections_.erase(found);
}

void ORpcThread::AcceptReady(const DescriptorSet& readSet) {
  for (platform::Socket listener : listeners_) {
    if (!Contains(readSet, listener)) continue;
    // All that the short queue of the listener can hold, or a burst of clients would be turned away meanwhile.
    for (int i = 0; i <= kBacklog && AcceptOne(listener); ++i) {
    }
  }
}

bool ORpcThread::AcceptOne(platform::Socket listener) {
  platform::SocketAddress peer;
  const platform::Socket socket = platform::AcceptSocket(listener, peer);
  if (socket < 0) {
    if (platform::IsOutOfResources(platform::LastSocketError())) {
      acceptAgain_ = std::chrono::steady_clock::now() + kAcceptPause;
    }
    return false;
  }
  acceptAgain_.reset();
  ORpcTrace(2).Print("accept(%d, %s:%d)=%d\n", listener, platform::FormatAddress(peer.Address).c_str(), peer.Port,
                     socket);
  if (!Admits(peer)) {
    platform::CloseSocket(socket);
    return true;
  }
  platform::SetLinger(socket, true, 0);  // a later close resets the connection at once
  platform::SendWithoutDelay(socket);
  // Who sends less than a call takes no place on the stack.
  if (WakesForCalls()) platform::WakeFor(socket, kShortestCall);
  connections_.push_back(socket);
  strangers_.emplace(socket, Clock::now());
  return true;
}

void ORpcThread::ServeCall(platform::Socket socket) {
  const Membership busy(busy_, socket);
  if (WakesForCalls() && strangers_.contains(socket)) platform::WakeFor(socket, 1);
  ORpcRecordIO stream(std::make_unique<ORpcSockIO>(socket, this), admission_.LongestRecord);
  const auto call = Decoded<CallHeader>(stream);
  strangers_.erase(socket);
  const MAutoLock lock(lock_);
  Answer(socket, call, stream);
  stream.Flush();
}

void ORpcThread::Answer(platform::Socket socket, const CallHeader& call, ORpcIO& stream) {
  const std::shared_ptr<ORpcServer> server = FindOrCreateServer(socket, {call.Program, call.Version});
  if (!server) {
    std::puts("PROG_UNAVAIL");
    Encode(stream, ReplyHeader{.Xid = call.Xid, .AcceptedStat = kProgramUnavailable});
    return;
  }
  server->replyHeader_.Xid = call.Xid;
  server->replyHeader_.AcceptedStat = kSuccess;
  const auto procedure = static_cast<std::int32_t>(call.Procedure);
  if (procedure != 0 && !server->HasProc(procedure)) {
    std::puts("PROC_UNAVAIL");
    server->replyHeader_.AcceptedStat = kProcedureUnavailable;
  } else if (procedure != 0) {
    server->stream_ = &stream;
    try {
      server->Dispatch(procedure);
      return;
    } catch (const OrpcSocketError&) {
      throw;
    } catch (...) {  // The operation failed, not the connection: its caller is told so.
      if (platform::GetVariable("ORPC_TRACE")) std::puts("Caught Dispatch exception");
      server->replyHeader_.AcceptedStat = kSystemError;
    }
  }
  Encode(stream, server->replyHeader_);
}

std::shared_ptr<ORpcServer> ORpcThread::FindOrCreateServer(platform::Socket socket, ORpcProgramKey key) {
  ServersOfConnection& servers = servers_[socket];
  if (const auto found = servers.find(key); found != servers.end()) return found->second;
  std::shared_ptr<ORpcServer> server = CreateServer(key);
  if (!server) return nullptr;
  servers.emplace(key, server);
  server->listenerPort_ = GetListenerPort(socket);
  server->remotePort_ = GetRemotePort(socket);
  server->isLocalPeer_ = IsLocal(socket);
  return server;
}

std::uint32_t ORpcThread::Send(platform::Socket socket, const void* buffer, std::uint32_t length) {
  if (stop_) return length;
  SendQueue& queue = sendQueues_[socket];
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  queue.Bytes.insert(queue.Bytes.end(), bytes, bytes + length);
  if (queue.InUse) return length;  // each of its attempts offers the whole queue

  queue.InUse = true;
  try {
    SendQueued(socket, queue, length);
  } catch (...) {  // What waits for a failed connection waits for nothing.
    sendQueues_.erase(socket);
    throw;
  }
  queue.InUse = false;
  if (queue.Sent == queue.Bytes.size()) sendQueues_.erase(socket);
  return length;
}

void ORpcThread::SendQueued(platform::Socket socket, SendQueue& queue, std::size_t length) {
  std::size_t sentHere = 0;
  int blocked = 0;
  auto moved = std::chrono::steady_clock::now();
  while (true) {
    const std::int64_t sent = TracedSend(socket, queue.Bytes.data() + queue.Sent, queue.Bytes.size() - queue.Sent);
    const int error = platform::LastSocketError();
    if (sent < 0 && !platform::IsWouldBlock(error)) RaiseSocketError("ORpcThread::Send::send", error);
    if (sent < 0) {
      if (IsTooLong(socket, moved)) RaiseSocketError("ORpcThread::Send::send", platform::kTimedOut);
      if (blocked > kBlockedRetries) RaiseSocketError("ORpcThread::Send::blocked", platform::kWouldBlock);
      platform::YieldTimeSlice();
      ++blocked;
    } else {
      queue.Sent += static_cast<std::size_t>(sent);
      sentHere += static_cast<std::size_t>(sent);
      moved = std::chrono::steady_clock::now();
      if (sentHere >= length) return;
    }
    DescriptorSet readSet;
    DescriptorSet writeSet{socket};
    PollOnce(socket, readSet, writeSet);
    // A reply without an end, or a peer that reads slowly, must not keep a loop alive that is to end.
    if (stop_) throw OrpcSocketError(platform::kConnectionAborted);
  }
}

void ORpcThread::DeleteServer(const ORpcServer* server) {
  const MAutoLock lock(lock_);
  for (auto& [socket, servers] : servers_) {
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [server](const auto& entry) { return entry.second.get() == server; });
    if (found == servers.end()) continue;
    const std::shared_ptr<ORpcServer> given = std::move(found->second);
    servers.erase(found);
    given->Abandon();
    return;
  }
}

void ORpcThread::DropConnection(platform::Socket socket) {
  const MAutoLock lock(lock_);
  const auto node = servers_.extract(socket);
  if (node) {
    for (const auto& [key, server] : node.mapped()) server->Abandon();
  }
  sendQueues_.erase(socket);
  strangers_.erase(socket);
  TracedClose(socket);
}

void ORpcThread::CloseAll() {
  for (platform::Socket socket : connections_) DropConnection(socket);
  for (platform::Socket socket : listeners_) TracedClose(socket);
  connections_.clear();
  listeners_.clear();
}

std::uint16_t ORpcThread::GetListenerPort(platform::Socket socket) {
  const auto address = platform::LocalAddress(socket);
  if (!address) RaiseSocketError("ORpcThread::GetListenerPort::getsockname", platform::LastSocketError());
  ORpcTrace(3).Print("GetListenerPort(%d)=%d\n", socket, address->Port);
  return address->Port;
}

std::uint16_t ORpcThread::GetRemotePort(platform::Socket socket) {
  const auto address = platform::RemoteAddress(socket);
  if (!address) RaiseSocketError("ORpcThread::GetRemotePort::getpeername", platform::LastSocketError());
  ORpcTrace(3).Print("GetRemotePort(%d)=%d\n", socket, address->Port);
  return address->Port;
}

}  // namespace tlm
