#include "shell/serve.h"

#include <atomic>
#include <chrono>
#include <cstdio>

#include "exec/kill.h"
#include "exec/temp_directories.h"
#include "exec/worker.h"
#include "jm/qorjmclient.h"
#include "platform/host.h"
#include "platform/socket.h"
#include "rpc/orpcthread.h"
#include "server/qorjmserver.h"
#include "shell/access.h"
#include "shell/settings.h"
#include "store/trace.h"
#include "util/immortal.h"

namespace tlm {

namespace {

// A polite stop takes up to 10 seconds; workers stop their processes side by side.
constexpr std::chrono::seconds kWorkersPatience{15};
constexpr char kThisMachine[] = "127.0.0.1";

JobManagerState& TheState() {
  static JobManagerState& state = MakeImmortal<JobManagerState>();
  return state;
}

ORpcThread& TheThread() {
  static ORpcThread& thread = MakeImmortal<ORpcThread>();
  return thread;
}

enum class Listener { None, Open, Gone };
std::atomic<Listener> listener = Listener::None;

// While this is so, nobody else can listen at the port.
bool IsListening() { return listener == Listener::Open && !TheThread().IsStopped(); }

// However the serving ended, no process of a job is left behind.
void EndWorkers() {
  {
    const MAutoLock lock(TheState().StateLock);
    RequestStop(TheState());
  }
  if (!AwaitWorkers(TheState(), kWorkersPatience)) TerminateChildren();
}

Access& TheAccess() {
  static Access& access = MakeImmortal<Access>(ReadAccess());
  return access;
}

void Tell(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::fprintf(stderr, "%s\n", line.c_str());
}

bool Configure() {
  Access& access = TheAccess();
  Tell(access.Faults);
  if (!access.Faults.empty()) return false;
  access.Admission.Trace = [](const std::string& line) { Trace(TheState(), "%s", line.c_str()); };
  TheState().Restrictions = access.Restrictions;
  TheThread().SetAdmission(access.Admission);
  return true;
}

// Not before the port is this server's.
void StartJobLog(std::uint16_t port) {
  if (TheAccess().JobLog.empty()) return;
  JobManagerState& state = TheState();
  const MAutoLock lock(state.StateLock);
  state.JobLog.Start(TheAccess().JobLog, TheAccess().JobLogSize, port);
  state.Jobs.Observe([&state](const Job& job) REQUIRES(state.StateLock) { state.JobLog.Record(job); });
}

// Behind the ends of all jobs that came to one.
void EndJobLog() {
  const MAutoLock lock(TheState().StateLock);
  TheState().JobLog.End();
}

void Run(std::uint16_t port) {
  const std::uint32_t address = TheAccess().Listen;
  TheThread().AddListener(port, address);
  // Programs of jobs report here, and so does the command that stops the server.
  const std::uint32_t thisMachine = *platform::ParseAddress(kThisMachine);
  if (address != 0 && address != thisMachine) TheThread().AddListener(port, thisMachine);
  listener = Listener::Open;
  Tell(DescribeAccess(TheAccess(), port, platform::UserName()));
  StartJobLog(port);
  // A system that has no thread even for that serves all the same.
  (void)TheState().Threads.Open();
  TheThread().SetCatchUp(TheState().Served);
  TheThread().Run();
}

}  // namespace

void PrepareServer() {
  RegisterJobManager(TheState(), TheThread());
  ApplySettings(TheState());
}

void SetHeartbeat(std::chrono::microseconds interval, std::function<void()> beat) {
  TheThread().SetHeartbeat(interval, std::move(beat));
}

bool Serve(std::uint16_t port) {
  const bool isConfigured = Configure();
  try {
    if (isConfigured) Run(port);
  } catch (...) {  // Whatever keeps it from serving, the person at the console is told.
    std::puts("FATAL ERROR: check that no other Tessarine processes are running");
  }
  listener = Listener::Gone;
  EndWorkers();
  EndJobLog();
  return isConfigured;
}

void CleanUp() {
  const MAutoLock lock(TheState().StateLock);
  PurgeTempRoot(TheState());
}

bool StopLocalServer(std::uint16_t port) {
  try {
    QorJMClient client;
    client.Connect(kThisMachine, port);
    client.Shutdown();
    return true;
  } catch (...) {  // Whatever keeps it from being reached.
    return false;
  }
}

bool StopServing(std::uint16_t port) {
  if (!IsListening()) return listener != Listener::None;
  try {
    QorJMClient client;
    client.Connect(kThisMachine, port);
    if (IsListening()) client.Shutdown();  // else it may be another that has accepted
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace tlm
