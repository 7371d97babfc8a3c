#include "rpc/orpcclient.h"

#include <algorithm>
#include <ctime>
#include <vector>

#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"

namespace tlm {

ORpcClient::ORpcClient(std::uint32_t program, std::uint32_t version, std::uint16_t defaultPort)
    : defaultPort_(defaultPort) {
  callHeader_.Xid = static_cast<std::uint32_t>(std::clock());
  callHeader_.Program = program;
  callHeader_.Version = version;
}

ORpcClient::~ORpcClient() { Disconnect(); }

void ORpcClient::Connect(const std::string& host, std::uint16_t port) {
  const auto limit = [this] {
    const MAutoLock lock(lock_);
    return TimeLeft();
  };
  Connect(ORpcResolveName(host, limit()), port);
}

void ORpcClient::Connect(std::uint32_t address, std::uint16_t port) {
  const platform::SocketAddress peer{address, port != 0 ? port : defaultPort_};
  const MAutoLock lock(lock_);
  MakeSocket();
  if (!platform::Connect(socket_, peer, TimeLeft())) {
    RaiseSocketError("ORpcClient::Connect::connect", platform::LastSocketError());
  }
  ORpcTrace(2).Print("connect(%d, %s:%d)\n", socket_, platform::FormatAddress(peer.Address).c_str(), peer.Port);
  platform::SetLinger(socket_, false, 1);
  platform::SendWithoutDelay(socket_);
  if (!platform::MakeNonBlocking(socket_)) {
    RaiseSocketError("ORpcClient::Connect::ioctl", platform::LastSocketError());
  }
  state_ = State::Idle;
  stream_ = MakeSocketStream(socket_);
  outstanding_ = 0;
}

void ORpcClient::MakeSocket() {
  stream_.reset();  // it must not speak on a number that is closed, or somebody else's by now
  if (socket_ >= 0) platform::CloseSocket(socket_);
  const platform::Socket socket = platform::OpenTcpSocket();
  const int error = platform::LastSocketError();
  socket_ = socket;
  ORpcTrace(2).Print("socket(...)=%d\n", socket);
  if (socket_ < 0) RaiseSocketError("ORpcClient::Connect::socket", error);
}

void ORpcClient::Disconnect() {
  const MAutoLock lock(lock_);
  if (socket_ >= 0) {
    platform::ShutdownSocket(socket_);
    TracedClose(socket_);
  }
  state_ = State::Closed;
  socket_ = -1;
  stream_.reset();
}

void ORpcClient::Interrupt() {
  const MAutoLock lock(lock_);
  if (socket_ >= 0) platform::ShutdownSocket(socket_);
}

void ORpcClient::NoticeLoss() {
  const MAutoLock lock(lock_);
  platform::NoticeLoss(socket_);
}

void ORpcClient::GiveUpAt(std::optional<std::chrono::steady_clock::time_point> time) {
  const MAutoLock lock(lock_);
  giveUpAt_ = time;
}

std::optional<std::chrono::milliseconds> ORpcClient::TimeLeft() const {
  using std::chrono::milliseconds;
  if (!giveUpAt_) return std::nullopt;
  const auto left = std::chrono::ceil<milliseconds>(*giveUpAt_ - std::chrono::steady_clock::now());
  return std::max(left, milliseconds(0));
}

void ORpcClient::AwaitReply() {
  for (int ready = -1; ready < 0;) {  // as long as signals end the wait
    const auto left = TimeLeft();
    if (!left) return;
    std::vector<platform::Socket> sockets{socket_};
    ready = platform::WaitForSockets(&sockets, nullptr, left);
    if (ready == 0) RaiseSocketError("ORpcClient::EndCall", platform::kTimedOut);
  }
}

ORpcIO& ORpcClient::BeginCall(std::uint32_t procedure) {
  const MAutoLock lock(lock_);
  if (!stream_) throw OrpcSocketError(platform::kNotConnected);
  if (state_ == State::Idle) {
    state_ = State::Starting;
    DrainReplies();
  }
  ++callHeader_.Xid;
  callHeader_.Procedure = procedure;
  Encode(*stream_, callHeader_);
  if (state_ == State::Starting) state_ = State::Idle;
  ++outstanding_;
  return *stream_;
}

void ORpcClient::DrainReplies() {
  const MAutoLock lock(lock_);
  while (stream_ && outstanding_ > 0 && platform::BytesReadable(socket_) >= kReplyHeaderSize) {
    lastReply_ = Decoded<ReplyHeader>(*stream_);
    --outstanding_;
  }
}

void ORpcClient::ReadReplies() {
  try {
    while (outstanding_ > 0) {
      lastReply_ = Decoded<ReplyHeader>(*stream_);
      --outstanding_;
    }
  } catch (...) {  // Whatever broke the wait, its caller learns that the reply is lost.
    throw kReplyLost;
  }
}

ORpcIO& ORpcClient::EndCall() {
  const MAutoLock lock(lock_);
  if (!stream_) throw OrpcSocketError(platform::kNotConnected);
  state_ = State::Waiting;
  AwaitReply();
  ReadReplies();
  state_ = State::Idle;
  if (lastReply_.ReplyStat != 0) RaiseSocketError("lReplyHdr.ReplyStat", static_cast<int>(lastReply_.ReplyStat));
  if (lastReply_.AcceptedStat != 0) {
    RaiseSocketError("lReplyHdr.AcceptedStat", static_cast<int>(lastReply_.AcceptedStat));
  }
  return *stream_;
}

ORpcClient::State ORpcClient::Ping() {
  const MAutoLock lock(lock_);
  if (state_ == State::Closed) return state_;
  try {
    BeginCall(0).Flush();
  } catch (...) {  // Any failure means that there is no peer any more.
    Disconnect();
  }
  return state_;
}

}  // namespace tlm
