// A whole server with three clients, on one thread: each beat of its loop lets the next thing happen. An input is a
// sequence of steps, each of them who, what, how many bytes, and these.
#include <array>

#include "exec/completion.h"
#include "exec/worker.h"
#include "fuzz/fuzz.h"
#include "platform/environment.h"
#include "server/qorjmserver.h"

namespace tlm::fuzz {
namespace {
constexpr std::int32_t kProcess = 0x7FFFFFFF;  // there is none of this id
constexpr ORpcProgramKey kProgram{kJobManagerProgram, kJobManagerVersion};

// Lets the machine alone: calls no host back, holds no strange process, sets no variable.
struct TameServer : QorJMServer {
  TameServer(JobManagerState& state, ORpcThread& thread) : QorJMServer(state, thread), State(state) {}
  bool Hello(const std::string& version, const std::string& host, std::uint32_t) override {
    return QorJMServer::Hello(version, host, 0);
  }
  std::uint64_t AttachProcess(std::uint64_t id, const std::string& command, const std::string& directory) override {
    const MAutoLock lock(State.StateLock);
    const bool isStranger = !State.Jobs.FindByPid(static_cast<std::int32_t>(id));
    return isStranger ? 0 : QorJMServer::AttachProcess(id, command, directory);
  }
  void SetEnvironment(const EnvList&) override {}
  JobManagerState& State;
};

class Play {
 public:
  explicit Play(std::string_view script) : script_(script) {
    platform::SocketAddress address{*platform::ParseAddress("127.0.0.1")};
    address.Port = thread_.GetListenerPort(thread_.AddListener(0, address.Address));
    for (platform::Socket& client : clients_) {
      client = platform::OpenTcpSocket();
      platform::SetLinger(client, true, 0);
      Require(platform::Connect(client, address) && platform::MakeNonBlocking(client));
    }
    const MAutoLock lock(state_.StateLock);
    state_.Restrictions.Confined = true;
    state_.TempRoot = ".";
    state_.IdleWorkers = 1;  // none has to be started, and no other thread
    state_.TimerStarted = state_.DistributionStarted = true;
    Job& job = state_.Jobs.Add();
    job.Status = Running;
    job.Pid = kProcess;
    job.TempDir = "./tqd";
    state_.Jobs.Changed(job);
  }
  ~Play() { std::ranges::for_each(clients_, platform::CloseSocket); }

  void Run() {
    RegisterServerFactory(kProgram, [this] { return std::make_shared<TameServer>(state_, thread_); });
    thread_.SetHeartbeat(std::chrono::microseconds(0), [this] { Beat(); });
    thread_.Run();
    const MAutoLock lock(state_.StateLock);
    Require(state_.SessionList.empty());
  }

 private:
  void Beat() {
    constexpr int kLastBeats = 16;
    char buffer[4096];
    for (const platform::Socket client : clients_) {
      while (platform::Receive(client, buffer, sizeof buffer) > 0) {
      }
    }
    if (!script_.empty()) return Step();
    if (beats_++ == 0) std::ranges::for_each(clients_, platform::ShutdownSocket);
    if (beats_ == kLastBeats) thread_.Stop();
  }

  void Step() {
    constexpr std::uint32_t kBytes = 50, kGoes = 51;  // beyond the numbers of operations
    const std::size_t who = TakeByte(script_) % 4;
    const std::uint32_t what = TakeByte(script_) % 52;
    const std::string_view bytes = script_.substr(0, TakeByte(script_));
    script_.remove_prefix(bytes.size());
    if (who == clients_.size()) return EndFirstJob();
    if (what == kGoes) platform::ShutdownSocket(clients_[who]);
    MemoryStream record;
    if (what < kBytes) {
      Encode(record, 0x80000000U + 40 + static_cast<std::uint32_t>(bytes.size()));
      Encode(record, CallHeader{.Program = kProgram.Program, .Version = kProgram.Version, .Procedure = what});
    }
    record.Written += bytes;
    platform::Send(clients_[who], record.Written.data(), record.Written.size());
  }

  void EndFirstJob() {
    const JobRef ref = TakeNextJob(state_);
    const MAutoLock lock(state_.StateLock);
    if (Job* job = state_.Jobs.Find(ref)) {
      const auto directory = ClientDirectory::Open(state_, job->TempDir);
      CompleteJob(state_, *job, directory ? &*directory : nullptr, false);
    }
    state_.BusyWorkers = 0;
    state_.IdleWorkers = 1;
  }

  JobManagerState state_;
  ORpcThread thread_;
  std::string_view script_;
  std::array<platform::Socket, 3> clients_{};
  int beats_ = 0;
};
}  // namespace

FUZZ(session) {
  const std::string before = platform::CurrentDirectory();
  platform::SetVariable("TSQOR_TMP", ".");
  const std::string other = Disk().Write("session/other", "not the clients'");
  Disk().MakeDirectory("session/root/tqd");
  platform::ChangeDirectory(Disk() / "session/root");
  Play(input).Run();
  platform::ChangeDirectory(before);
  Require(Disk().Read("session/other") == "not the clients'");
  Require(platform::ListNames(Disk() / "session").value() == StringList{".", "..", "other", "root"});
  std::filesystem::remove_all(Disk() / "session/root");
}
}  // namespace tlm::fuzz
