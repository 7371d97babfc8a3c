// The smallest call there is: what the server adds to the cost of its bytes, for few and for many connections.
#include <optional>

#include "echo.h"
#include "groups.h"
#include "load.h"
#include "report.h"
#include "server.h"

namespace tlm::bench {

namespace {

constexpr std::size_t kManyBusy = 64;
constexpr std::size_t kManyIdle = 1000;

struct Contender {
  std::uint16_t Port;
  const Child& Process;
  Exchange Load;
};

double RateOfManyBusy(const Contender& contender, double seconds) {
  return CallsSideBySide(ConnectAll(contender.Port, kManyBusy, contender.Load), contender.Load, seconds);
}

// Processor time of the process for one call, in microseconds.
double CostOfManyBusy(const Contender& contender, double seconds) {
  const std::vector<Connection> connections = ConnectAll(contender.Port, kManyBusy, contender.Load);
  const double start = Now();
  const double before = contender.Process.ProcessorSeconds();
  const double callsPerSecond = CallsSideBySide(connections, contender.Load, seconds);
  const double share = (contender.Process.ProcessorSeconds() - before) / (Now() - start);
  return share / callsPerSecond * 1e6;
}

// A job that waits, and the bytes with which a client looks at it.
Exchange LookAtJob(const Server& server, const Connection& owner) {
  const Submission job = server.NewJob("bracket", "solver -in bracket.inp");
  const auto handle = Ask(owner, OperationNumber::SubmitJob, job).Take<std::uint64_t>();
  const std::string call = CallOf(OperationNumber::GetJob, handle, Task{});
  const std::string reply = owner.Call(call);
  Results results(reply);
  const Task task = results.Take<Task>();
  Require(results.Take<bool>() && task.Status == Queued && task.AnalysisID == job.AnalysisID,
          "GetJob does not tell of the job that was submitted");
  return {call, reply};
}

}  // namespace

void MeasureNullCalls(const Options& options) {
  const Exchange null{NullCall(), NullReply()};
  const Server server;
  const PortChild echo([&](const Listener& listener) { ServeEcho(listener, null.Call.size(), null.Reply); });
  std::vector<std::string> names{"tlmjm", "epoll echo"};
  std::vector<Contender> nulls{{server.Port(), server.Process(), null}, {echo.Port(), echo.Process(), null}};
  std::optional<PortChild> peer;
  if (HasRpcPeer()) {
    peer.emplace([](const Listener& listener) { ServeRpcPeer(listener.Descriptor()); });
    names.emplace_back("libtirpc");
    nulls.push_back({peer->Port(), peer->Process(), {NullCall(kPeerProgram), null.Reply}});
  }
  const Connection owner = server.Greet();  // to the end, so that nothing happens to the job
  const Exchange look = LookAtJob(server, owner);
  const PortChild lookEcho([&](const Listener& listener) { ServeEcho(listener, look.Call.size(), look.Reply); });
  const std::vector<Contender> looks{{server.Port(), server.Process(), look},
                                     {lookEcho.Port(), lookEcho.Process(), look}};

  Table table("Calls, one outstanding on each connection", names);
  Row& one = table.Add("null call, 1 connection", "calls/s", kBiggerIsBetter, RatioTarget(0.85));
  Row& many = table.Add("null call, 64 connections", "calls/s", kBiggerIsBetter, RatioTarget(0.85));
  Row& cost = table.Add("- server's CPU for one", "us", kTimesAsMuch);
  Row& idle = table.Add("null call, 1 of 1,000 connections", "calls/s", kBiggerIsBetter, RatioTarget(0.8));
  Row& job = table.Add("GetJob, 1 connection", "calls/s", kBiggerIsBetter);

  const double seconds = options.Choose(0.2, 0.1);  // of each turn
  const auto takeTurns = [](Row& row, const std::vector<Contender>& contenders, const auto& measure) {
    TakeTurns(row, contenders.size(), [&](std::size_t column) {
      const double figure = measure(contenders[column], column);
      contenders[column].Process.AwaitRest();  // so that it does not tidy up while the next one is measured
      return figure;
    });
  };
  const auto rateOfOne = [seconds](const Contender& contender, std::size_t) {
    const SharedProcessor shared(contender.Process);
    return CallsInTurn(Connection(contender.Port), contender.Load, seconds);
  };
  ForEachRound(options, "null", [&] {
    takeTurns(one, nulls, rateOfOne);
    takeTurns(many, nulls, [=](const Contender& contender, std::size_t) { return RateOfManyBusy(contender, seconds); });
    takeTurns(cost, nulls, [=](const Contender& contender, std::size_t) { return CostOfManyBusy(contender, seconds); });
    takeTurns(job, looks, rateOfOne);
    std::vector<std::vector<Connection>> connections;
    for (const Contender& contender : nulls) {
      connections.push_back(ConnectAll(contender.Port, kManyIdle, contender.Load));
    }
    takeTurns(idle, nulls, [&](const Contender& contender, std::size_t column) {
      const SharedProcessor shared(contender.Process);
      return CallsInTurn(connections[column][kManyIdle / 2], contender.Load, seconds);
    });
  });
  table.Print();
  if (!peer) std::printf("\nlibtirpc-dev is not installed: no peer.\n");
}

}  // namespace tlm::bench
