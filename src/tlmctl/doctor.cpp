#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <optional>

#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/findings.h"
#include "tlmctl/inquiry.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/peer_load.h"
#include "tlmctl/queue_state.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kPatience{10};

// Whatever is looked at, at one server.
struct Examination {
  const Settings& Options;
  Findings Results;
  ServerAddress Server;
  bool IsHere = false;  // the server is on this machine
  QorJMClient Client;
};

// -- server, release

struct Reach {
  double Milliseconds = 0;
  std::optional<Failure> Obstacle;
};

Reach TryToReach(QorJMClient& client, const Settings& settings) {
  try {
    Connect(client, settings);
    return {MeasureNullCall(client), {}};
  } catch (const Failure& failure) {
    return {0, failure};
  } catch (const OrpcSocketError&) {
    return {0, Failure{kUnreachable, "what listens there does not speak as a job manager", "check the port"}};
  }
}

bool CheckServer(Examination& exam) {
  const Inquiry<Reach> inquiry([settings = exam.Options](QorJMClient& client) { return TryToReach(client, settings); });
  const auto reach = inquiry.Await(std::chrono::steady_clock::now() + kPatience + exam.Options.WaitServer);
  if (!reach) {
    exam.Results.Fault("server", exam.Server.Text() + " does not answer",
                       "it may be busy with a transfer or a client that has gone: try again in a minute");
  } else if (reach->Obstacle) {
    exam.Results.Fault("server", reach->Obstacle->Text, reach->Obstacle->Hint);
  } else {
    exam.Results.Good("server", exam.Server.Text() + " answers in " + MillisecondsText(reach->Milliseconds));
  }
  return reach && !reach->Obstacle;
}

void CheckRelease(Examination& exam) {
  const std::string& release = exam.Options.Release;
  Connect(exam.Client, exam.Options);
  bool found = false;
  try {
    found = SayHello(exam.Client, exam.Options);
  } catch (const OrpcSocketError&) {  // a name that is none
    Connect(exam.Client, exam.Options);
  }
  if (found) return exam.Results.Good("release", "the server has programs of release " + release + ", and takes jobs");
  exam.Results.Fault("release", "the server has no programs of release " + release + ", and takes no job",
                     "TSQOR_HOME in the server's settings names its installation; --release another one");
}

// -- the temporary root

// A file of a few bytes that is here while it lives.
class Sample {
 public:
  Sample() : path_(platform::MakeUniqueFile(platform::TemporaryDirectory(), "tlmctl").value_or("")) {
    auto file = platform::File::Open(path_, platform::File::Mode::Truncate);
    if (!file || !file->Write(kText)) throw Failure{kRefused, "cannot write to " + platform::TemporaryDirectory()};
  }
  Sample(const Sample&) = delete;
  Sample& operator=(const Sample&) = delete;
  ~Sample() { platform::RemoveFile(path_); }
  const std::string& Path() const { return path_; }
  std::string Name() const { return std::filesystem::path(path_).filename().string(); }
  static std::uint32_t Size() { return sizeof kText - 1; }

 private:
  static constexpr char kText[] = "a sample of tlmctl doctor\n";
  std::string path_;
};

// What goes wrong with a file that is sent to the server and deleted there; empty if nothing.
std::string TryToStore(QorJMClient& client) {
  const Sample sample;
  const std::string directory = platform::TemporaryDirectory() + "/tlmctl-doctor/";
  std::string there;
  client.MapClientDirectory(directory, there);
  const std::string stored = there + '/' + sample.Name();
  const bool taken = client.PutFiles({{{stored, sample.Path()}}});
  if (!taken || !client.ClientFileMatches(directory + sample.Name(), Sample::Size(), 0)) return "takes no files";
  const bool deleted = client.UpdateClientFiles({stored}, {});
  return deleted && !client.ClientFileExists(directory + sample.Name()) ? "" : "keeps files that it should delete";
}

void CheckRoot(Examination& exam) {
  constexpr std::uintmax_t kLittle = 1'000'000'000;
  std::string root;
  std::uint32_t expiry = 0;
  exam.Client.GetTempRoot({root}, {expiry});
  if (const std::string fault = TryToStore(exam.Client); !fault.empty()) {
    return exam.Results.Fault("root", root + ' ' + fault,
                              "is its disk full? May the server's user write there? Another one: 'tlmctl temp-root'");
  }
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(root, error);
  if (!exam.IsHere || error) return exam.Results.Good("root", root + " takes files");
  const std::string text = root + " takes files, " + SizeText(space.available) + " free";
  if (space.available >= kLittle) return exam.Results.Good("root", text);
  exam.Results.Warning("root", text, "make room, or let old files go sooner: 'tlmctl temp-root --expiry 2d'");
}

// -- port

void CheckPort(Examination& exam) {
  const auto addresses = exam.IsHere ? platform::ListeningAddresses(exam.Server.Port) : std::nullopt;
  if (!addresses || addresses->empty()) return;  // it cannot be seen from here
  const auto isLoopback = [](std::uint32_t address) { return platform::FormatAddress(address).starts_with("127."); };
  const std::string port = "port " + std::to_string(exam.Server.Port);
  if (std::all_of(addresses->begin(), addresses->end(), isLoopback)) {
    return exam.Results.Good("port", port + " is open to this machine alone");
  }
  exam.Results.Warning("port",
                       port + " is open at all addresses of this machine, and nobody has to log in to run programs",
                       "let a firewall pass only the machines that need it");
}

// -- queue, pool

void CheckQueue(Examination& exam) {
  const QueueState queue = LookAtQueue(exam.Client);
  const std::string jobs = JobsText(queue.Waiting) + " waiting, " + JobsText(queue.Running) + " running, limit " +
                           std::to_string(queue.Limit);
  if (queue.Runs) return exam.Results.Good("queue", "runs; " + jobs);
  if (queue.StartsAt != 0)
    return exam.Results.Good("queue", "starts at " + LocalTimeText(queue.StartsAt) + "; " + jobs);
  if (queue.Waiting == 0) return exam.Results.Good("queue", "stands still; " + jobs);
  exam.Results.Warning("queue", "stands still; " + jobs, "'tlmctl queue start' lets them run");
}

void CheckPool(Examination& exam) {
  StringList hosts;
  exam.Client.GetServerPool({hosts});
  if (hosts.empty()) return exam.Results.Good("pool", "no peers; distributed jobs run on the server itself");
  const std::vector<std::optional<PeerLoad>> loads = AskPeers(exam.Options, hosts, kPatience);
  for (std::size_t i = 0; i < hosts.size(); ++i) {
    const std::string peer = Printable(PeerAddress(exam.Options, hosts[i]).Text());
    if (!loads[i]) {
      exam.Results.Warning(
          "peer", peer + " does not answer to this machine; if not to the server either, it gets no jobs",
          "start it, give its port as TSQOR_JMPORT_" + Printable(hosts[i]) + ", or leave it out: 'tlmctl pool set'");
    } else if (!loads[i]->TakesJobs) {
      exam.Results.Warning("peer", peer + " has no programs of release " + exam.Options.Release + ", and takes no jobs",
                           "install them there, or leave it out: 'tlmctl pool set'");
    } else {
      exam.Results.Good("peer", peer + " answers; load " + std::to_string(loads[i]->Count) + ", limit " +
                                    std::to_string(loads[i]->Limit));
    }
  }
}

// -- clock

// By how many seconds the server's clock is ahead, as far as jobs tell that were submitted from here.
std::optional<std::int64_t> ClockLead(const std::vector<KnownJob>& jobs) {
  const auto job =
      std::find_if(jobs.rbegin(), jobs.rend(), [](const KnownJob& known) { return known.Entry.has_value(); });
  return job == jobs.rend() ? std::nullopt : std::optional(job->State.Scheduled - job->Entry->Submitted);
}

void CheckClock(Examination& exam) {
  constexpr std::int64_t kTolerance = 30;
  const std::vector<KnownJob> jobs = FetchAllKnownJobs(exam.Client);
  std::optional<std::int64_t> lead = ClockLead(jobs);
  std::int64_t latest = 0;
  for (const KnownJob& job : jobs) latest = std::max({latest, job.State.Scheduled, job.State.Started});
  if (!lead && latest > platform::SecondsSince1970()) lead = latest - platform::SecondsSince1970();
  if (!lead) {
    return exam.Results.Good("clock", exam.IsHere
                                          ? "is that of this machine"
                                          : "cannot be told: the server has no job that was submitted from here");
  }
  const std::string difference = DurationText(std::abs(*lead)) + (*lead < 0 ? " behind" : " ahead");
  if (std::abs(*lead) <= kTolerance) return exam.Results.Good("clock", difference + " of the one here, or less");
  exam.Results.Warning("clock", "the server's is " + difference + " of the one here",
                       "let both machines take their time from the network; times of jobs are the server's");
}

int Doctor(const Settings& settings) {
  Examination exam{settings, Findings(settings), AddressOf(settings), false, {}};
  const bool reached = CheckServer(exam);
  if (reached) {
    exam.IsHere = platform::IsOwnAddress(ORpcResolveName(exam.Server.Host));
    CheckRelease(exam);
    CheckRoot(exam);
    CheckPort(exam);
    CheckQueue(exam);
    CheckPool(exam);
    CheckClock(exam);
  }
  if (settings.Json) exam.Results.PrintDocument();
  if (!reached) return kUnreachable;
  return exam.Results.HasFaults() ? kRefused : kGood;
}

}  // namespace

void AddDoctor(Program& program) {
  program.AddCommand(
      {.Name = "doctor",
       .Description = "Look for what is wrong with the server, and say what to do",
       .Examples = {{"doctor", "each line is OK, WARN or FAIL"}, {"-q --server beta doctor", "only what is not OK"}},
       .Operations = {"Hello", "GetTempRoot", "MapClientDirectory", "PutFiles", "ClientFileMatches", "ClientFileExists",
                      "UpdateClientFiles", "IsQueueRunning", "GetQueueStartTime", "GetQueueLimit", "ListJobs", "GetJob",
                      "GetServerPool", "GetJobCount", "GetLocalLimit"},
       .Details =
           "Sends a small file to the server and deletes it there. Peers are asked from here. Ends with 0 unless a\n"
           "line says FAIL."},
      Doctor);
}

}  // namespace tlm::ctl
