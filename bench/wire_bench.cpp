// Encoding and decoding without a network.
#include <benchmark/benchmark.h>
#include <string>

#include "jm/file_transfer.h"
#include "jm/task.h"
#include "platform/file.h"
#include "platform/file_system.h"
#include "rpc/orpcrecordio.h"
#include "tape.h"

namespace tlm::bench {

namespace {

Task TypicalTask() {
  Task task;
  task.AnalysisID = "bracket";
  task.WorkDir = "/home/engineer/models/bracket";
  task.Command = "solver -in bracket.inp -out bracket";
  task.InputFile = "bracket.inp";
  task.ResultStem = task.InputStem = "bracket";
  task.ClientHost = "workstation";
  return task;
}

void EncodeTask(benchmark::State& state) {
  const Task task = TypicalTask();
  std::string bytes;
  for (auto _ : state) {
    bytes.clear();
    ORpcRecordIO io(std::make_unique<Tape>(bytes));
    Encode(io, task).Flush();
  }
}
BENCHMARK(EncodeTask);

void DecodeTask(benchmark::State& state) {
  std::string bytes;
  ORpcRecordIO writer(std::make_unique<Tape>(bytes));
  Encode(writer, TypicalTask()).Flush();
  for (auto _ : state) {
    ORpcRecordIO io(std::make_unique<Tape>(bytes));
    benchmark::DoNotOptimize(Decoded<Task>(io));
  }
}
BENCHMARK(DecodeTask);

constexpr std::size_t kFileSize = 64 << 20;

// A directory with one file to send.
class Files {
 public:
  Files() : Directory(platform::MakeUniqueDirectory(platform::TemporaryDirectory(), "bench").value()) {
    auto file = platform::File::Open(Source(), platform::File::Mode::Truncate);
    static_cast<void>(file->Write(std::string(kFileSize, 'x')));
  }
  ~Files() {
    platform::RemoveFile(Source());
    platform::RemoveFile(Destination());
    platform::RemoveEmptyDirectory(Directory);
  }
  std::string Source() const { return Directory + "/source"; }
  std::string Destination() const { return Directory + "/destination"; }
  FileTransferList List() const { return {{{Destination(), Source()}}}; }

  std::string Directory;
};

void EncodeFiles(benchmark::State& state) {
  const Files files;
  std::string bytes;
  for (auto _ : state) {
    bytes.clear();
    ORpcRecordIO io(std::make_unique<Tape>(bytes));
    Encode(io, files.List()).Flush();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileSize));
}
BENCHMARK(EncodeFiles)->Unit(benchmark::kMillisecond);

void DecodeFiles(benchmark::State& state) {
  const Files files;
  std::string bytes;
  ORpcRecordIO writer(std::make_unique<Tape>(bytes));
  Encode(writer, files.List()).Flush();
  for (auto _ : state) {
    ORpcRecordIO io(std::make_unique<Tape>(bytes));
    benchmark::DoNotOptimize(Decoded<FileTransferList>(io));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileSize));
}
BENCHMARK(DecodeFiles)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace tlm::bench
