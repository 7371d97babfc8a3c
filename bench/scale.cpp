// What a full table costs: every operation on one job beside the same with ten jobs; then many clients that look at
// jobs.
#include <cstdio>

#include "echo.h"
#include "groups.h"
#include "load.h"
#include "report.h"
#include "server.h"

namespace tlm::bench {

namespace {

constexpr std::size_t kFewJobs = 10;
constexpr std::size_t kSessions = 500;
constexpr double kLooksPerSecond = 10;  // of each session

// The bytes of the submissions, one behind the other and all of one length.
struct Submissions {
  Submissions(const Server& server, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "bracket%07zu", i);
      const Submission job = server.NewJob(name, std::string("solver -in ") + name + ".inp");
      Submission::VisitFields(job, [this](const auto& field) {
        if constexpr (requires { field.size(); }) TextBytes += field.size();
      });
      const std::string call = CallOf(OperationNumber::SubmitJob, job);
      Calls += call;
      CallSize = call.size();
    }
  }
  std::string Calls;
  std::size_t CallSize = 0;
  std::size_t TextBytes = 0;
};

const std::size_t kSubmitReplySize = NullReply().size() + sizeof(std::uint64_t);

// A server with so many jobs in its queue, which stands still.
class FullServer {
 public:
  explicit FullServer(std::size_t jobs) : session_(server_.Greet()), submissions_(server_, jobs) {
    const std::size_t idle = server_.Process().Resident();
    const double start = Now();
    const std::string replies = Pipeline(session_, submissions_.Calls, submissions_.CallSize, kSubmitReplySize);
    const auto count = static_cast<double>(jobs);
    SubmissionsPerSecond = count / (Now() - start);
    const auto grown = static_cast<double>(server_.Process().Resident() - idle);
    BytesPerJob = (grown - static_cast<double>(submissions_.TextBytes)) / count;
    for (std::size_t at = 0; at < replies.size(); at += kSubmitReplySize) {
      handles_.push_back(Results(replies.substr(at, kSubmitReplySize)).Take<std::uint64_t>());
    }
    CheckTable();
  }

  double SubmissionsPerSecond = 0;
  double BytesPerJob = 0;  // besides its texts

  const Submissions& Submitted() const { return submissions_; }
  const Child& Process() const { return server_.Process(); }

  Exchange List() const {
    const std::string call = CallOf(OperationNumber::ListJobs, HandleList{});
    const std::string reply = session_.Call(call);
    return {call, reply};
  }
  double SecondsOfList(const Exchange& list) const {
    const double start = Now();
    const std::string reply = session_.Call(list.Call);
    const double seconds = Now() - start;
    Require(reply.size() == list.Reply.size(), "ListJobs gives another number of jobs");
    return seconds;
  }

  // Median of the round trips, in seconds.
  double SecondsOfLook(std::size_t samples) {
    const SharedProcessor shared(server_.Process());
    std::vector<double> seconds;
    for (std::size_t i = 0; i < samples; ++i) {
      const std::string call = CallOf(OperationNumber::GetJob, NextHandle(), Task{});
      const double start = Now();
      const std::string reply = session_.Call(call);
      seconds.push_back(Now() - start);
      Require(Results(reply).Take<Task>().Status == Queued, "a job is not in the queue any more");
    }
    return Median(seconds);
  }

  // The same. The job that is removed leaves the table, and a new one takes its place.
  double SecondsOfRemoval(std::size_t samples) {
    const SharedProcessor shared(server_.Process());
    std::vector<double> seconds;
    for (std::size_t i = 0; i < samples; ++i) {
      std::uint64_t& handle = NextHandle();
      const std::string call = CallOf(OperationNumber::RemoveJob, handle);
      const double start = Now();
      const std::string reply = session_.Call(call);
      seconds.push_back(Now() - start);
      Require(Results(reply).Take<bool>(), "a job cannot be removed");
      Ask(session_, OperationNumber::ReleaseJob, handle);
      Ask(session_, OperationNumber::GetJob, handle, Task{});  // which sweeps it away
      const std::string again = submissions_.Calls.substr(0, submissions_.CallSize);
      handle = Results(session_.Call(again)).Take<std::uint64_t>();
    }
    CheckTable();
    return Median(seconds);
  }

  // A session for each, which has said Hello.
  std::vector<Connection> Greet(std::size_t count) const {
    std::vector<Connection> sessions;
    while (sessions.size() < count) sessions.push_back(server_.Greet());
    return sessions;
  }
  Exchange Look() {
    const std::string call = CallOf(OperationNumber::GetJob, NextHandle(), Task{});
    const std::string reply = session_.Call(call);
    Require(Results(reply).Take<Task>().Status == Queued, "a job is not in the queue any more");
    return {call, reply};
  }

 private:
  // In steps that lead all over the table.
  std::uint64_t& NextHandle() {
    constexpr std::size_t kStride = 7919;  // a prime
    at_ = (at_ + kStride) % handles_.size();
    return handles_[at_];
  }

  void CheckTable() const {
    const auto listed = Results(List().Reply).Take<HandleList>();
    Require(listed.size() == handles_.size(), "the table does not hold the jobs that were submitted");
  }

  Server server_;
  Connection session_;
  Submissions submissions_;
  std::vector<std::uint64_t> handles_;
  std::size_t at_ = 0;
};

double SubmissionsPerSecondOfEcho(const Submissions& submissions, std::size_t count) {
  const std::string reply(kSubmitReplySize, '\0');
  const PortChild echo([&](const Listener& listener) { ServeEcho(listener, submissions.CallSize, reply); });
  const Connection connection(echo.Port());
  const double start = Now();
  Pipeline(connection, submissions.Calls, submissions.CallSize, kSubmitReplySize);
  return static_cast<double>(count) / (Now() - start);
}

double SecondsOfEcho(const Exchange& exchange) {
  const PortChild echo([&](const Listener& listener) { ServeEcho(listener, exchange.Call.size(), exchange.Reply); });
  const Connection connection(echo.Port());
  connection.Call(exchange.Call);
  const double start = Now();
  connection.Call(exchange.Call);
  return Now() - start;
}

// The share of a processor that the process's first thread takes while the sessions look.
double ShareOfLooking(const Child& process, std::span<const Connection> sessions, const Exchange& look,
                      double seconds) {
  process.AwaitRest();
  const double start = Now();
  const double before = process.MainThreadSeconds();
  CallsAtRate(sessions, look, kSessions * kLooksPerSecond, seconds);
  return (process.MainThreadSeconds() - before) / (Now() - start);
}

double ShareOfEcho(const Exchange& look, double seconds) {
  const PortChild echo([&](const Listener& listener) { ServeEcho(listener, look.Call.size(), look.Reply); });
  return ShareOfLooking(echo.Process(), ConnectAll(echo.Port(), kSessions, look), look, seconds);
}

}  // namespace

void MeasureScale(const Options& options) {
  const std::size_t jobs = options.Choose<std::size_t>(100'000, 10'000);
  const std::size_t samples = options.Choose<std::size_t>(500, 50);
  const double seconds = options.Choose(5.0, 2.0);
  Table single(std::to_string(jobs) + " jobs in the table", {"tlmjm", "tlmjm, 10 jobs"});
  Row& look = single.Add("GetJob", "us", kTimesAsLong, RatioTarget(1.2));
  Row& removal = single.Add("RemoveJob", "us", kTimesAsLong, RatioTarget(1.2));
  Table whole(
      std::to_string(jobs) + " jobs, and " + std::to_string(kSessions) + " sessions that look ten times a second",
      {"tlmjm", "epoll echo"});
  Row& submission = whole.Add("SubmitJob, pipelined", "calls/s", kBiggerIsBetter, FigureTarget(50'000));
  Row& memory = whole.Add("memory for a job besides its texts", "bytes", kTimesAsMuch, FigureTarget(1024));
  Row& list = whole.Add("ListJobs", "ms", kTimesAsLong);
  Row& share = whole.Add("sessions: main thread's share of a core", "cores", kTimesAsMuch, FigureTarget(0.5));

  ForEachRound(options, "scale", [&] {
    FullServer full(jobs);
    FullServer few(kFewJobs);
    submission.Add(kOurs, full.SubmissionsPerSecond);
    submission.Add(kLimit, SubmissionsPerSecondOfEcho(full.Submitted(), jobs));
    memory.Add(kOurs, full.BytesPerJob);
    FullServer* const servers[]{&full, &few};
    TakeTurns(look, 2, [&](std::size_t column) { return servers[column]->SecondsOfLook(samples) * 1e6; });
    TakeTurns(removal, 2, [&](std::size_t column) { return servers[column]->SecondsOfRemoval(samples) * 1e6; });
    const Exchange wholeList = full.List();
    TakeTurns(list, 2, [&](std::size_t column) {
      return (column == kOurs ? full.SecondsOfList(wholeList) : SecondsOfEcho(wholeList)) * 1e3;
    });
    const Exchange oneLook = full.Look();
    share.Add(kOurs, ShareOfLooking(full.Process(), full.Greet(kSessions), oneLook, seconds));
    share.Add(kLimit, ShareOfEcho(oneLook, seconds));
  });
  single.Print();
  whole.Print();
}

}  // namespace tlm::bench
