// A large file to the server and back: the speed, and what it costs the server.
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <unistd.h>

#include "echo.h"
#include "groups.h"
#include "plain_transfer.h"
#include "record_reader.h"
#include "report.h"
#include "server.h"
#include "web_peer.h"

namespace tlm::bench {

namespace fs = std::filesystem;

namespace {

constexpr double kMebibyte = 1 << 20;
constexpr std::size_t kRecordContent = kChunk * kChunksInRecord;

// The large file is this again and again.
const std::string& Content() {
  static const std::string content = [] {
    std::string bytes;
    std::mt19937 random(1);
    while (bytes.size() < kRecordContent) bytes += static_cast<char>(random());
    return bytes;
  }();
  return content;
}

// Onto the disk, too, so that nothing is written there while something is measured.
void WriteLargeFile(const fs::path& path, std::size_t size) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t written = 0; written < size; written += kRecordContent) file << Content();
  Require(static_cast<bool>(file.flush()), "the disk is full");
  sync();
}

void CheckLargeFile(const fs::path& path, std::size_t size) {
  std::string end(kRecordContent, '\0');
  std::ifstream file(path, std::ios::binary);
  file.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end).read(end.data(), kRecordContent);
  Require(fs::file_size(path) == size && end == Content(), "a file that was sent has arrived as another one");
}

// Looks at the beginning of the first file alone.
class CountingSink : public FileSink {
 public:
  void Take(std::string_view bytes) override {
    if (Count == 0) Require(Content().starts_with(bytes), "a file comes back as another one");
    Count += bytes.size();
  }
  std::size_t Count = 0;
};

// What is sent for a file, made beforehand.
struct Upload {
  Upload(const fs::path& destination, std::size_t size)
      : Head(CallOf(OperationNumber::PutFiles, std::uint32_t{1}, destination.string(), std::string("source"),
                    std::uint32_t{0})),
        Body(ChunkRecord(Content())),
        Tail(Record(std::string(sizeof(std::uint32_t), '\0'))),
        Count(size / kRecordContent) {}

  std::string Head, Body, Tail;
  std::size_t Count;  // of bodies
};

void Put(const Connection& connection, const Upload& upload) {
  connection.Send(upload.Head);
  for (std::size_t i = 0; i < upload.Count; ++i) connection.Send(upload.Body);
  Require(Results(connection.Call(upload.Tail)).Take<bool>(), "the file was not stored");
}

// Gives the number of bytes of files that came.
std::size_t Fetch(const Connection& connection, const std::string& call) {
  connection.Send(call);
  CountingSink sink;
  RecordReader reader(connection, sink);
  constexpr std::size_t kBeforeStatus = 20;
  reader.Skip(kBeforeStatus);
  Require(reader.Word() == kSuccess, "RequestResults has failed");
  reader.Files();
  Require(reader.Word() == 1, "the server has no results");
  return sink.Count;
}

// One direction: the rows of its table.
struct Rows {
  Rows(Table& table, const std::string& name)
      : Speed(table.Add(name, "MiB/s", kBiggerIsBetter, RatioTarget(0.9))),
        Processor(table.Add("- server's CPU", "s", kTimesAsLong, RatioTarget(1.2))),
        Memory(table.Add("- server's memory above idle", "MiB", kTimesAsMuch, FigureTarget(10))) {}

  // Memory is counted from `idle` bytes on.
  void Measure(std::size_t column, const Child& process, std::size_t idle, std::size_t size,
               const std::function<void()>& transfer) {
    process.ForgetPeak();
    const double before = process.ProcessorSeconds();
    const double start = Now();
    transfer();
    Speed.Add(column, static_cast<double>(size) / kMebibyte / (Now() - start));
    Processor.Add(column, process.ProcessorSeconds() - before);
    Memory.Add(column, (static_cast<double>(process.PeakResident()) - static_cast<double>(idle)) / kMebibyte);
    process.AwaitRest();
  }

  Row& Speed;
  Row& Processor;
  Row& Memory;
};

// Who speaks in chunks.
struct Contender {
  const Child& Process;
  const Connection& Client;
  fs::path Destination;  // of the file that is put
  std::uint64_t Job;     // whose results are fetched
  std::size_t Idle;      // bytes of memory before the first transfer
};

void MeasurePut(std::size_t column, const Contender& contender, std::size_t size, Rows& rows) {
  const Upload upload(contender.Destination, size);
  rows.Measure(column, contender.Process, contender.Idle, size, [&] { Put(contender.Client, upload); });
  CheckLargeFile(contender.Destination, size);
  fs::remove(contender.Destination);
}

void MeasureFetch(std::size_t column, const Contender& contender, std::size_t size, Rows& rows) {
  constexpr std::size_t kLongestManifest = 1000;
  const std::string call = CallOf(OperationNumber::RequestResults, contender.Job, std::uint32_t{0});
  std::size_t count = 0;
  rows.Measure(column, contender.Process, contender.Idle, size, [&] { count = Fetch(contender.Client, call); });
  Require(count >= size && count < size + kLongestManifest, "the results have another length");
}

// A job that has ended and has the large file as its result.
std::uint64_t RunLargeJob(const Server& server, const Connection& owner) {
  server.AddProgram(FindProgram("true"));
  const auto job = Ask(owner, OperationNumber::SubmitJob, server.NewJob("large", "true")).Take<std::uint64_t>();
  Ask(owner, OperationNumber::StartQueue, std::uint64_t{0});
  AwaitFinished(owner, job);
  return job;
}

void MeasureWebPeer(const WebPeer& peer, const fs::path& source, std::size_t size, Rows& put, Rows& get) {
  constexpr std::size_t kPeer = kLimit + 1;
  const fs::path sent = source.parent_path() / "web.dat";
  put.Measure(kPeer, peer.Process(), peer.Idle(), size,
              [&] { PutDocument(peer.Connect(), sent.filename(), Content(), size / kRecordContent); });
  CheckLargeFile(sent, size);
  fs::remove(sent);
  get.Measure(kPeer, peer.Process(), peer.Idle(), size,
              [&] { Require(GetDocument(peer.Connect(), source.filename()) == size, "cut"); });
}

}  // namespace

void MeasureFiles(const Options& options) {
  const std::size_t size = options.Choose<std::size_t>(1 << 30, 64 << 20);
  const Server server;
  const fs::path source = server.Directory() / "large.dat";
  WriteLargeFile(source, size);
  const Connection owner = server.Greet();
  const std::uint64_t job = RunLargeJob(server, owner);
  const Contender ours{server.Process(), owner, server.Directory() / "sent.dat", job, server.Process().Resident()};

  const fs::path destination = server.Directory() / "plain.dat";
  const PortChild plain([&](const Listener& listener) { ServePlainTransfers(listener, source, destination); });
  const Connection client(plain.Port());
  const Contender limit{plain.Process(), client, destination, job, plain.Process().Resident()};

  std::vector<std::string> names{"tlmjm", "plain server"};
  std::optional<WebPeer> peer;
  if (WebPeer::IsInstalled()) {
    peer.emplace(server.Directory());
    names.emplace_back("nginx");
  }
  Table table("A file of " + std::to_string(size >> 20) + " MiB, in the page cache", names);
  Rows put(table, "PutFiles");
  Rows fetch(table, "RequestResults");
  Table ignored("", names);
  Rows first(ignored, "");
  MeasurePut(kLimit, limit, size, first);  // memory that this machine has not used for long takes longer
  ForEachRound(options, "files", [&] {
    MeasurePut(kOurs, ours, size, put);
    MeasurePut(kLimit, limit, size, put);
    Ask(owner, OperationNumber::ResultsNotSent, job);  // so that all of them are sent again
    MeasureFetch(kOurs, ours, size, fetch);
    MeasureFetch(kLimit, limit, size, fetch);
    if (peer) MeasureWebPeer(*peer, source, size, put, fetch);
  });
  table.Print();
  if (!peer) std::printf("\nnginx (nginx-light) is not installed: no peer.\n");
}

}  // namespace tlm::bench
