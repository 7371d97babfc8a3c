#include "shell/serve.h"

#include <atomic>
#include <chrono>
#include <cstdio>

#include "exec/kill.h"
#include "exec/temp_directories.h"
#include "exec/worker.h"
#include "jm/qorjmclient.h"
#include "rpc/orpcthread.h"
#include "server/qorjmserver.h"
#include "shell/settings.h"
#include "util/immortal.h"

namespace tlm {

namespace {

// A polite stop takes up to 10 seconds; workers stop their processes side by side.
constexpr std::chrono::seconds kWorkersPatience{15};

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
    TheState().StopRequested = true;
  }
  if (!AwaitWorkers(TheState(), kWorkersPatience)) TerminateChildren();
}

}  // namespace

void PrepareServer() {
  RegisterJobManager(TheState(), TheThread());
  ApplySettings(TheState());
}

void Serve(std::uint16_t port) {
  try {
    TheThread().AddListener(port);
    listener = Listener::Open;
    TheThread().Run();
  } catch (...) {  // Whatever keeps it from serving, the person at the console is told.
    std::puts("FATAL ERROR: check that no other Tessarine processes are running");
  }
  listener = Listener::Gone;
  EndWorkers();
}

void CleanUp() {
  const MAutoLock lock(TheState().StateLock);
  PurgeTempRoot(TheState());
}

bool StopLocalServer(std::uint16_t port) {
  try {
    QorJMClient client;
    client.Connect("127.0.0.1", port);
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
    client.Connect("127.0.0.1", port);
    if (IsListening()) client.Shutdown();  // else it may be another that has accepted
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace tlm
