#include "rpc/orpcthread.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/environment.h"
#include "platform/thread.h"
#include "rpc/orpcerror.h"

namespace tlm {

namespace {

constexpr int kBacklog = 10;
constexpr int kBlockedRetries = 500;
// Calls in progress on the stack. A peer that stops in the middle of a call keeps its frame, so that the stack could
// else be filled up by half calls. One takes about 2 KB of the usual 8 MB, four times as much with address checks.
constexpr std::size_t kDeepestNesting = 500;
constexpr std::chrono::milliseconds kNestingPause{1};
// A call that waits for its socket tries again after so long: what it waits for may be there untold, since urgent data
// and want of memory make the system give up before all is moved.
constexpr std::chrono::milliseconds kSecondLook{50};
// So long one who asks for what ended processes have sent waits also for connections that have not ended. With more
// calls than can be served there is always one of these.
constexpr std::chrono::milliseconds kPatienceForLive{50};
constexpr std::size_t kMostSpareStreams = 16;
// A call on top of others on the stack may wait so long for its peer.
constexpr std::chrono::seconds kStallLimit{60};

thread_local ORpcThread* currentThread = nullptr;

// Undoes what begins with a scope.
template <class Function>
class AtEnd {
 public:
  explicit AtEnd(Function function) : function_(std::move(function)) {}
  ~AtEnd() { function_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Function function_;
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
  require(sockets_.AddListener(socket), "ORpcThread::AddListener::poller");
  return socket;
}

void ORpcThread::Run() {
  currentThread = this;
  if (catchUp_) catchUp_->Open([this] { sockets_.Wake(); });
  while (!stop_) Pass(nullptr);
  if (catchUp_) catchUp_->Close();
  CloseAll();
  currentThread = nullptr;
}

void ORpcThread::Await(platform::Socket socket, Direction direction) {
  const Waited waited{socket, direction};
  const bool isOwn = connections_.Find(socket) != nullptr;
  if (!isOwn && !sockets_.Watch(waited)) RaiseSocketError("ORpcThread::Await::poller", platform::LastSocketError());
  const AtEnd removed([&] {
    if (!isOwn) sockets_.Unwatch(socket);
  });
  Pass(&waited);
  // A peer that does not go on must not keep a loop alive that is to end.
  if (stop_) throw OrpcSocketError(platform::kConnectionAborted);
}

void ORpcThread::Pass(const Waited* waited) {
  std::fflush(stdout);
  TakeRequest();
  const bool isAsked = request_ && busy_ == 0 && !sockets_.ListenersPaused();
  sockets_.Look(waited, isAsked ? std::chrono::microseconds(0) : LongestSleep(), request_.has_value());
  if (request_ && HasCaughtUp(waited)) catchUp_->Answer(*std::exchange(request_, std::nullopt));
  Beat();
  if (stop_) return;
  door_.DropLateStrangers();
  ServeReady();
  AcceptReady();
}

void ORpcThread::TakeRequest() {
  if (!catchUp_ || request_) return;
  request_ = catchUp_->Request();
  if (request_) requestTaken_ = Clock::now();
}

// After a look that began when the request was there.
bool ORpcThread::HasCaughtUp(const Waited* waited) const {
  if (sockets_.ListenersPaused()) return false;
  if (busy_ == 0 && !sockets_.HasWork(waited)) return true;
  return Clock::now() - requestTaken_ >= kPatienceForLive && !sockets_.HasReadyListener() &&
         !sockets_.HasEndedConnection();
}

std::optional<std::chrono::microseconds> ORpcThread::LongestSleep() const {
  std::optional<Clock::duration> sleep;
  const auto atMost = [&sleep](Clock::duration time) { sleep = std::min(sleep.value_or(time), time); };
  if (busy_ != 0) atMost(kSecondLook);
  if (const auto look = door_.NextLook()) atMost(*look);
  if (beat_) atMost(beatInterval_);
  if (!sleep) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::microseconds>(*sleep);
}

bool ORpcThread::IsTooLong(platform::Socket socket, std::chrono::steady_clock::time_point since) const {
  const auto silence = Clock::now() - since;
  return door_.IsTooLong(connections_.Find(socket), silence, busy_ > kDeepestNesting / 2) ||
         (HoldsOthersUp(socket) && silence >= StallLimit());
}

// While a call waits for the socket.
bool ORpcThread::HoldsOthersUp(platform::Socket socket) const {
  const Connection* connection = connections_.Find(socket);
  return busy_ > (connection && connection->Busy ? 1U : 0U);
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

// A connection with a call in progress does not use the pass up, or one that sends while it waits further down the
// stack would keep all later ones from being served.
void ORpcThread::ServeReady() {
  Connection* const next = connections_.FirstReady();
  if (!next) return;
  if (busy_ >= kDeepestNesting) return platform::Sleep(kNestingPause);
  const platform::Socket socket = next->Socket;
  try {
    ServeCall(*next);
  } catch (...) {  // Whatever went wrong with this connection, the others go on.
    Connection* const failed = connections_.Find(socket);
    if (failed) return Drop(*failed);
    std::puts("CONNECTION NOT FOUND");
  }
}

void ORpcThread::AcceptReady() {
  if (sockets_.ListenersPaused()) return;
  for (LoopSockets::Listener& listener : sockets_.Listeners()) {
    // All that the short queue of the listener can hold, or a burst of clients would be turned away meanwhile.
    for (int i = 0; i <= kBacklog && listener.Ready && AcceptOne(listener); ++i) {
    }
  }
}

// False if nobody has come.
bool ORpcThread::AcceptOne(LoopSockets::Listener& listener) {
  platform::SocketAddress peer;
  const platform::Socket socket = platform::AcceptSocket(listener.Socket, peer);
  if (socket < 0) {
    const int error = platform::LastSocketError();
    if (platform::IsOutOfResources(error)) sockets_.PauseListeners();
    if (platform::IsWouldBlock(error)) listener.Ready = false;
    return false;
  }
  sockets_.ResumeListeners();
  ORpcTrace(2).Print("accept(%d, %s:%d)=%d\n", listener.Socket, platform::FormatAddress(peer.Address).c_str(),
                     peer.Port, socket);
  if (door_.Admits(peer)) {
    Welcome(socket);
  } else {
    platform::CloseSocket(socket);
  }
  return true;
}

void ORpcThread::Welcome(platform::Socket socket) {
  platform::SetLinger(socket, true, 0);  // a later close resets the connection at once
  platform::SendWithoutDelay(socket);
  door_.Prepare(socket);
  Connection* const connection = sockets_.AddConnection(socket);
  if (!connection) return platform::CloseSocket(socket);
  door_.Welcome(*connection);
}

void ORpcThread::ServeCall(Connection& connection) {
  connection.Busy = true;
  ++busy_;
  connections_.Changed(connection);
  const AtEnd over([&] {
    connection.Busy = false;
    connection.InCall = nullptr;
    connection.SlowSince.reset();
    --busy_;
    connections_.Changed(connection);
  });
  std::unique_ptr<CallStream> stream = TakeStream(connection);
  connection.InCall = &stream->Record();
  door_.LetIn(connection);
  const auto call = Decoded<CallHeader>(stream->Record());
  door_.Acquaint(connection);
  const MAutoLock lock(lock_);
  Answer(connection.Socket, call, stream->Record());
  stream->Record().Flush();
  GiveBack(connection, std::move(stream));
  // All that was asked for has come, and perhaps that was all there is: the next call would wait on the stack for it.
  if (connection.Readable && !connection.Ended && !connection.Urgent)
    connection.Readable = platform::BytesReadable(connection.Socket) != 0;
}

std::unique_ptr<CallStream> ORpcThread::TakeStream(Connection& connection) {
  if (connection.Ahead) return std::move(connection.Ahead);
  std::unique_ptr<CallStream> stream;
  if (spareStreams_.empty()) {
    stream = std::make_unique<CallStream>(this, door_.LongestRecord());
    // A trace shows each mark and each record by itself.
    if (!ORpcTrace(2).IsOn()) stream->Record().ReadAhead();
  } else {
    stream = std::move(spareStreams_.back());
    spareStreams_.pop_back();
  }
  stream->Attach(connection.Socket);
  return stream;
}

void ORpcThread::GiveBack(Connection& connection, std::unique_ptr<CallStream> stream) {
  stream->Record().EndCall();
  if (stream->Record().HasMore()) {
    connection.Ahead = std::move(stream);
  } else if (spareStreams_.size() < kMostSpareStreams) {
    spareStreams_.push_back(std::move(stream));
  }
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
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  const auto outer = std::find_if(sending_.begin(), sending_.end(),
                                  [socket](const SendInProgress* one) { return one->Socket == socket; });
  if (outer != sending_.end()) {
    (*outer)->Behind.insert((*outer)->Behind.end(), bytes, bytes + length);
    return length;
  }
  SendInProgress own{socket, {}};
  sending_.push_back(&own);
  const AtEnd over([this] { sending_.pop_back(); });
  SendAll(socket, bytes, length);
  while (!own.Behind.empty()) {
    const std::vector<unsigned char> behind = std::exchange(own.Behind, {});
    SendAll(socket, behind.data(), behind.size());
  }
  return length;
}

void ORpcThread::SendAll(platform::Socket socket, const unsigned char* bytes, std::size_t length) {
  int blocked = 0;
  std::optional<Clock::time_point> moved;
  while (true) {
    const std::int64_t sent = TracedSend(socket, bytes, length);
    const int error = platform::LastSocketError();
    sockets_.NoteSent(socket, sent, length);
    if (sent == static_cast<std::int64_t>(length)) return;
    if (sent < 0 && !platform::IsWouldBlock(error)) RaiseSocketError("ORpcThread::Send::send", error);
    if (sent >= 0 || !moved) moved = Clock::now();
    const bool isTooSlow = HoldsOthersUp(socket) && sockets_.SlowFor(socket) >= StallLimit();
    if (isTooSlow || IsTooLong(socket, *moved)) RaiseSocketError("ORpcThread::Send::send", platform::kTimedOut);
    if (sent < 0) {
      if (blocked > kBlockedRetries) RaiseSocketError("ORpcThread::Send::blocked", platform::kWouldBlock);
      platform::YieldTimeSlice();
      ++blocked;
    } else {
      bytes += sent;
      length -= static_cast<std::size_t>(sent);
    }
    Await(socket, Direction::Write);
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

void ORpcThread::Drop(Connection& connection) {
  const MAutoLock lock(lock_);
  const auto node = servers_.extract(connection.Socket);
  if (node) {
    for (const auto& [key, server] : node.mapped()) server->Abandon();
  }
  door_.Acquaint(connection);
  sockets_.Unwatch(connection.Socket);
  TracedClose(connection.Socket);
  connections_.Remove(connection);
}

void ORpcThread::CloseAll() {
  while (connections_.Size() != 0) Drop(connections_.All().begin()->second);
  for (const LoopSockets::Listener& listener : sockets_.Listeners()) TracedClose(listener.Socket);
  sockets_.Listeners().clear();
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
