// The job table under a few and under many jobs.
#include <benchmark/benchmark.h>

#include "local_server.h"

namespace tlm::bench {

namespace {

void GetJob(benchmark::State& state) {
  LocalServer server;
  JobRef last = 0;
  {
    const MAutoLock lock(server.State.StateLock);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
      Job& job = server.State.Jobs.Add();
      job.AnalysisID = job.ResultStem = "bracket";
      job.Status = Queued;
      job.RunClass = kRunQueued;
      server.State.Jobs.Changed(job);
      last = job.Handle;
    }
  }
  const std::unique_ptr<QorJMClient> client = server.Connect();
  Task task;
  for (auto _ : state) client->GetJob(last, task);
}
BENCHMARK(GetJob)->Arg(10)->Arg(10'000)->UseRealTime();

}  // namespace

}  // namespace tlm::bench
