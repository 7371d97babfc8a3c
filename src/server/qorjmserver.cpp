#include "server/qorjmserver.h"

#include <algorithm>

#include "exec/retirement.h"
#include "exec/temp_directories.h"
#include "jm/dispatch.h"
#include "libtsenv/install_path.h"
#include "libtsenv/runtime_identity.h"
#include "platform/environment.h"
#include "platform/file_system.h"
#include "rpc/orpcerror.h"
#include "server/orphan_sweep.h"
#include "store/ownership.h"
#include "store/trace.h"

namespace tlm {

namespace {

constexpr char kLoaderPrefix[] = "LD_";

struct PinsOfCall {
  Receiver& Held;
  ~PinsOfCall() { Held.Release(); }
};

}  // namespace

QorJMServer::QorJMServer(JobManagerState& state, ORpcThread& thread) : state_(state), thread_(thread) {
  const MAutoLock lock(state_.StateLock);
  if (state_.TempRoot.empty()) state_.TempRoot = DeriveTempRoot();
  session_.Server = this;
  state_.SessionList.push_back(&session_);
}

QorJMServer::~QorJMServer() { QorJMServer::Abandon(); }

void QorJMServer::Abandon() {
  if (abandoned_) return;
  abandoned_ = true;
  Trace(state_, "Disconnect %d\n", session_.ClientPort);
  if (session_.Callback) session_.Callback->Interrupt();
  session_.Callback.reset();
  const MAutoLock lock(state_.StateLock);
  std::erase(state_.SessionList, &session_);
  if (session_.Listening) --state_.ListeningSessions;
  SweepJobs(state_);
  DisownJobs(state_, session_);
}

void QorJMServer::Dispatch(std::int32_t procedure) {
  const PinsOfCall pins{receiver_};
  DispatchOperation(procedure, {*this, *stream_, replyHeader_, abandoned_, receiver_});
}

bool QorJMServer::HasProc(std::int32_t procedure) const { return IsOperation(procedure); }

bool QorJMServer::Hello(const std::string& versionToken, const std::string& clientHost, std::uint32_t callbackPort) {
  SweepOrphans(state_, thread_);
  if (abandoned_) throw OrpcSocketError(platform::kConnectionAborted);  // this client was an orphan itself
  const MAutoLock lock(state_.StateLock);
  session_.ClientPort = RemotePort();
  session_.ClientHost = clientHost;
  session_.CallbackPort = static_cast<std::uint16_t>(callbackPort);
  Trace(state_, "Hello from %s:%d, ClientPort=%d Version=%s\n", clientHost.c_str(), session_.CallbackPort,
        session_.ClientPort, versionToken.c_str());
  Trace(state_, "Server recieving message =%s\n", Identity().RUNTIME_JM_VERSION.c_str());
  session_.InstallToken = versionToken == "QOR100" ? "plm300" : versionToken;
  session_.InstallPath =
      InstallPath(session_.InstallToken, [this](const std::string& line) { Trace(state_, "%s", line.c_str()); });
  session_.Installed = std::make_shared<Installation>(
      Installation{.Env = Identity().RUNTIME_JM_ENVIRONMENT_HOME + "=" + session_.InstallPath,
                   .BinPath = session_.InstallPath + platform::kPathSeparator + "bin" + platform::kPathSeparator});
  Trace(state_, "Install Path %s\n", session_.InstallPath.c_str());
  return !session_.InstallPath.empty();
}

bool QorJMServer::MayAdminister(const char* operation) {
  if (!state_.Restrictions.LocalAdministration || IsLocalPeer()) return true;
  Trace(state_, "Refused %s of a client that is not on this machine\n", operation);
  return false;
}

void QorJMServer::Shutdown() {
  if (!MayAdminister("Shutdown")) return;
  const MAutoLock lock(state_.StateLock);
  RequestStop(state_);
  thread_.Stop();
}

void QorJMServer::SetListening(bool on) {
  const MAutoLock lock(state_.StateLock);
  session_.Listening = on;
  if (on && !session_.Refreshed) RefreshJobs();
  state_.ListeningSessions += on ? 1 : -1;
}

void QorJMServer::RefreshJobs() {
  const MAutoLock lock(state_.StateLock);
  session_.Refreshed = true;
}

void QorJMServer::SetEnvironment(const EnvList& variables) {
  if (!MayAdminister("SetEnvironment")) return;
  for (const auto& [name, value] : variables) {
    if (state_.Restrictions.NoLoaderVariables && name.starts_with(kLoaderPrefix)) {
      Trace(state_, "Refused to set %s\n", name.c_str());
      continue;
    }
    std::string text = name;
    text.append("=").append(value);
    const std::size_t end = text.find('=');  // perhaps already in the name
    platform::SetVariable(text.substr(0, end), text.substr(end + 1));
  }
}

bool QorJMServer::Reserved16(std::uint64_t) { return false; }

void QorJMServer::Reserved34(std::uint64_t, std::uint32_t) {}

void RegisterJobManager(JobManagerState& state, ORpcThread& thread) {
  RegisterServerFactory({kJobManagerProgram, kJobManagerVersion},
                        [&state, &thread] { return std::make_shared<QorJMServer>(state, thread); });
}

}  // namespace tlm
