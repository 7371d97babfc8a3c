#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <optional>
#include <string_view>

#include "libtsenv/runtime_identity.h"
#include "platform/file_system.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "rpc/callheader.h"
#include "rpc/orpcerror.h"
#include "rpc/orpctrace.h"
#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/findings.h"
#include "tlmctl/job_counts.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/peer_load.h"
#include "tlmctl/queue_state.h"
#include "tlmctl/temporary_file.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::seconds kPatience{10};  // for what one check asks

// Whatever is looked at, at one server.
struct Examination {
  const Settings& Options;
  Findings Results;
  ServerAddress Server;
  bool IsHere = false;        // its address is one of this machine
  bool FilesAreHere = false;  // what it stores can be seen here, or may not be looked at
  QorJMClient Client;
};

// -- server, release

bool Reach(Examination& exam) {
  try {
    Connect(exam.Client, exam.Options);
    exam.Client.GiveUpAt(std::chrono::steady_clock::now() + kPatience);
    return true;
  } catch (const Failure& failure) {
    exam.Results.Fault("server", failure.Text, failure.Hint);
  } catch (const OrpcSocketError&) {
    exam.Results.Fault("server", "what listens at " + exam.Server.Text() + " does not speak as a job manager",
                       "check the port");
  }
  return false;
}

void CheckServer(Examination& exam) {
  exam.Results.Good("server", exam.Server.Text() + " answers in " + MillisecondsText(MeasureNullCall(exam.Client)));
  exam.IsHere = platform::IsOwnAddress(ORpcResolveName(exam.Server.Host));
}

void CheckRelease(Examination& exam) {
  const std::string& release = exam.Options.Release;
  bool found = false;
  try {
    found = SayHello(exam.Client, exam.Options);
  } catch (const OrpcSocketError& error) {  // a name that is none
    if (!IsRefusal(error)) throw;
    Connect(exam.Client, exam.Options);
  }
  if (found) return exam.Results.Good("release", "the server has programs of release " + release + ", and takes jobs");
  exam.Results.Fault("release", "the server has no programs of release " + release + ", and takes no job",
                     Identity().RUNTIME_JM_ENVIRONMENT_HOME +
                         " in the server's settings names its installation; --release another one");
}

// -- the temporary root

// Sends a file to the server and deletes it there. What goes wrong; empty if nothing.
std::string TryToStore(Examination& exam) {
  constexpr std::string_view kText = "a sample of tlmctl doctor\n";
  QorJMClient& client = exam.Client;
  const TemporaryFile sample(kText);
  const std::string directory = platform::TemporaryDirectory() + "/tlmctl-doctor/";
  std::string there;
  client.MapClientDirectory(directory, there);
  const std::string stored = there + '/' + sample.Name();
  const bool taken = client.PutFiles({{{stored, sample.Path()}}});
  if (!taken || !client.ClientFileMatches(directory + sample.Name(), kText.size(), 0)) return "takes no files";
  std::error_code error;  // set where this user may not look
  exam.FilesAreHere = std::filesystem::exists(stored, error) || error;
  const bool deleted = client.UpdateClientFiles({stored}, {});
  return deleted && !client.ClientFileExists(directory + sample.Name()) ? "" : "keeps files that it should delete";
}

void CheckRoot(Examination& exam) {
  constexpr std::uintmax_t kLittle = 1'000'000'000;
  std::string root;
  std::uint32_t expiry = 0;
  exam.Client.GetTempRoot({root}, {expiry});
  if (const std::string fault = TryToStore(exam); !fault.empty()) {
    return exam.Results.Fault("root", root + ' ' + fault,
                              "is its disk full? May the server's user write there? Another one: 'tlmctl temp-root'");
  }
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(root, error);
  if (!exam.IsHere || !exam.FilesAreHere || error) return exam.Results.Good("root", root + " takes files");
  const std::string text = root + " takes files, " + SizeText(space.available) + " free";
  if (space.available >= kLittle) return exam.Results.Good("root", text);
  exam.Results.Warning("root", text, "make room, or let old files go sooner: 'tlmctl temp-root --expiry 2d'");
}

// -- port

void CheckPort(Examination& exam) {
  if (!exam.IsHere) {
    return exam.Results.Good("port", "who else can reach it can only be told on the server's own machine");
  }
  // The port may be one that leads on, as a tunnel's.
  const std::string further = exam.FilesAreHere ? "" : "; the server's own machine may be another one: look there, too";
  const auto addresses = platform::ListeningAddresses(exam.Server.Port);
  if (!addresses || addresses->empty()) return;  // it cannot be seen from here
  const auto isLoopback = [](std::uint32_t address) { return platform::FormatAddress(address).starts_with("127."); };
  const std::string port = "port " + std::to_string(exam.Server.Port);
  if (std::all_of(addresses->begin(), addresses->end(), isLoopback)) {
    return exam.Results.Good("port", port + " is open to this machine alone" + further);
  }
  exam.Results.Warning("port",
                       port + " is open at all addresses of this machine, and nobody has to log in to run programs",
                       "let a firewall pass only the machines that need it" + further);
}

// -- queue, pool

void CheckQueue(Examination& exam) {
  const QueueState queue = LookAtQueue(exam.Client);
  const std::string jobs = JobsText(queue.Waiting) + " waiting, " + JobsText(queue.Holders.size()) +
                           " running, limit " + std::to_string(queue.Limit);
  if (queue.Runs) return exam.Results.Good("queue", "runs; " + jobs);
  if (queue.StartsAt != 0)
    return exam.Results.Good("queue", "starts at " + LocalTimeText(queue.StartsAt) + "; " + jobs);
  if (queue.Waiting == 0) return exam.Results.Good("queue", "stands still; " + jobs);
  exam.Results.Warning("queue", "stands still; " + jobs, "'tlmctl queue start' lets them run");
}

void CheckPool(Examination& exam) {
  const StringList hosts = FetchPool(exam.Client);
  if (hosts.empty()) return exam.Results.Good("pool", "no peers; distributed jobs run on the server itself");
  const std::vector<std::optional<PeerLoad>> loads = AskPeers(exam.Options, hosts, kPatience);
  for (std::size_t i = 0; i < loads.size(); ++i) {
    const std::string peer = PeerAddress(exam.Options, hosts[i]).Text();
    if (!loads[i]) {
      exam.Results.Warning("peer",
                           peer + " does not answer to this machine; if not to the server either, it gets no jobs",
                           "start it, give its port as " + Identity().RUNTIME_JM_ENVIRONMENT_PORT + '_' + hosts[i] +
                               ", or leave it out: 'tlmctl pool set'");
    } else if (!loads[i]->TakesJobs) {
      exam.Results.Warning("peer", peer + " has no programs of release " + exam.Options.Release + ", and takes no jobs",
                           "install them there, or leave it out: 'tlmctl pool set'");
    } else {
      exam.Results.Good("peer", peer + " answers; load " + std::to_string(loads[i]->Count) + ", limit " +
                                    std::to_string(loads[i]->Limit));
    }
  }
  if (hosts.size() > loads.size()) {
    exam.Results.Good("pool", std::to_string(hosts.size() - loads.size()) + " more peers, which were not asked");
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

// -- all of them

struct Check {
  const char* Subject;
  void (*Run)(Examination& exam);
};

constexpr Check kChecks[] = {{"server", CheckServer}, {"release", CheckRelease}, {"root", CheckRoot},
                             {"port", CheckPort},     {"queue", CheckQueue},     {"pool", CheckPool},
                             {"clock", CheckClock}};

// What stands in the way of the check itself.
std::optional<Failure> TryToRun(const Check& check, Examination& exam) {
  exam.Client.GiveUpAt(std::chrono::steady_clock::now() + kPatience);
  try {
    check.Run(exam);
    return std::nullopt;
  } catch (const Failure& failure) {
    return failure;
  } catch (const OrpcSocketError& error) {
    return error.Number() == platform::kTimedOut
               ? Failure{kLost, "the server does not answer any more",
                         "it may be busy with a transfer or a client that has gone: try again in a minute"}
               : Describe(error);
  } catch (int marshalling) {
    return Describe(marshalling);
  } catch (const std::exception& error) {
    return Failure{kRefused, error.what()};
  }
}

// A connection on which a call has failed cannot be used any more. False if there is no new one.
bool Restore(Examination& exam) {
  if (!Reach(exam)) return false;
  try {
    SayHello(exam.Client, exam.Options);
  } catch (const OrpcSocketError&) {  // the checks find out
  } catch (int) {
  }
  return true;
}

int Doctor(const Settings& settings) {
  Examination exam{settings, Findings(settings), AddressOf(settings), false, false, {}};
  const bool reached = Reach(exam);
  bool connected = reached;
  for (const Check& check : kChecks) {
    if (!connected) break;
    const auto obstacle = TryToRun(check, exam);
    if (!obstacle) continue;
    exam.Results.Fault(check.Subject, obstacle->Text, obstacle->Hint);
    connected = Restore(exam);
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
