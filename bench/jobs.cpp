// Small jobs, where all the time is the server's: how many a second, and how long it takes to notice their start and
// end.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "groups.h"
#include "queue_peers.h"
#include "report.h"
#include "server.h"

namespace tlm::bench {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kTaskSpooler = kLimit + 1;
constexpr std::size_t kParallel = kLimit + 2;

// From the start of the queue, in which all of them wait, until a client has seen each of them Finished. It looks once
// a millisecond, so as to take no processor away from them.
double SecondsOfQueue(const Server& server, std::size_t jobs) {
  const Connection client = server.Greet();
  std::vector<std::uint64_t> handles;
  for (std::size_t i = 0; i < jobs; ++i) {
    const Submission job = server.NewJob("job" + std::to_string(i), "true");
    handles.push_back(Ask(client, OperationNumber::SubmitJob, job).Take<std::uint64_t>());
  }
  const double start = Now();
  Ask(client, OperationNumber::StartQueue, std::uint64_t{0});
  for (std::uint64_t handle : handles) {
    while (LookAt(client, handle).Status != Finished) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const double seconds = Now() - start;
  for (std::uint64_t handle : handles) Ask(client, OperationNumber::RemoveJob, handle);
  return seconds;
}

// Where jobs of the stamping program tell their times.
class Stamps {
 public:
  explicit Stamps(const fs::path& fifo) : fifo_(fifo) {
    Check(mkfifo(fifo.c_str(), 0600), "mkfifo");
    reader_ = static_cast<int>(Check(open(fifo.c_str(), O_RDWR | O_CLOEXEC), "opening a FIFO"));  // never at its end
  }
  ~Stamps() { close(reader_); }
  Stamps(const Stamps&) = delete;
  Stamps& operator=(const Stamps&) = delete;

  // Waits for the next one; in the seconds of Now().
  double Next() const {
    constexpr int kPatience = 60'000;  // milliseconds
    pollfd entry{.fd = reader_, .events = POLLIN, .revents = 0};
    Require(Check(poll(&entry, 1, kPatience), "waiting for a job") == 1, "a job does not start or end");
    timespec time{};
    Require(Check(read(reader_, &time, sizeof time), "reading a FIFO") == sizeof time, "half a time");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }
  const fs::path& Path() const { return fifo_; }

 private:
  fs::path fifo_;
  int reader_;
};

struct Delays {
  double Start;  // seconds from the order to the first instruction of the program
  double End;    // from its last one to the moment when it is known
};

Delays DelaysOfServer(const Connection& client, const Submission& job, const Stamps& stamps) {
  const double ordered = Now();
  const auto handle = Ask(client, OperationNumber::SubmitJob, job).Take<std::uint64_t>();
  const double started = stamps.Next();
  AwaitFinished(client, handle);
  const double known = Now();
  Ask(client, OperationNumber::RemoveJob, handle);
  return {started - ordered, known - stamps.Next()};
}

Delays DelaysOfSpawning(const fs::path& program, const Stamps& stamps) {
  const double ordered = Now();
  const pid_t pid = Spawn({program, stamps.Path()});
  const double started = stamps.Next();
  siginfo_t info{};
  Check(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED), "waiting for a job");
  const double known = Now();
  return {started - ordered, known - stamps.Next()};
}

// Medians in milliseconds.
template <class Sample>
void MeasureDelays(std::size_t column, std::size_t samples, Row& start, Row& end, Sample sample) {
  std::vector<double> starts;
  std::vector<double> ends;
  for (std::size_t i = 0; i < samples; ++i) {
    const Delays delays = sample();
    starts.push_back(delays.Start * 1e3);
    ends.push_back(delays.End * 1e3);
  }
  start.Add(column, Median(starts));
  end.Add(column, Median(ends));
}

}  // namespace

void MeasureJobs(const Options& options) {
  const std::size_t jobs = options.Choose<std::size_t>(200, 20);
  const std::size_t samples = options.Choose<std::size_t>(25, 5);
  const fs::path stamp = fs::canonical("/proc/self/exe").parent_path() / "bench_stamp";
  const Server server;
  server.AddProgram(FindProgram("true"));
  server.AddProgram(stamp);
  const Connection client = server.Greet();
  Ask(client, OperationNumber::SetQueueLimit, std::uint32_t{2});
  const Stamps stamps(server.Directory() / "stamps");
  Submission stamping = server.NewJob("stamp", "bench_stamp " + stamps.Path().string());
  stamping.RunClass = kRunAtOnce;  // a queue stops when it runs empty

  Table table("Jobs", {"tlmjm", "posix_spawn, wait", "task-spooler", "GNU parallel"});
  Row& rate = table.Add(std::to_string(jobs) + " jobs, 2 at a time", "jobs/s", kBiggerIsBetter, RatioTarget(0.5));
  Row& start = table.Add("order to start of the process", "ms", kTimesAsLong, FigureTarget(2));
  Row& end = table.Add("its end to the client's knowing", "ms", kTimesAsLong, FigureTarget(1));
  const auto perSecond = [jobs](double seconds) { return static_cast<double>(jobs) / seconds; };
  ForEachRound(options, "jobs", [&] {
    rate.Add(kOurs, perSecond(SecondsOfQueue(server, jobs)));
    rate.Add(kLimit, perSecond(SecondsOfSpawning(jobs)));
    if (HasTaskSpooler()) rate.Add(kTaskSpooler, perSecond(SecondsOfTaskSpooler(jobs)));
    if (HasParallel()) rate.Add(kParallel, perSecond(SecondsOfParallel(jobs)));
    MeasureDelays(kOurs, samples, start, end, [&] { return DelaysOfServer(client, stamping, stamps); });
    MeasureDelays(kLimit, samples, start, end, [&] { return DelaysOfSpawning(stamp, stamps); });
  });
  table.Print();
  if (!HasTaskSpooler()) std::printf("\ntask-spooler is not installed: no peer.\n");
  if (!HasParallel()) std::printf("\nGNU parallel (parallel) is not installed: no peer.\n");
}

}  // namespace tlm::bench
