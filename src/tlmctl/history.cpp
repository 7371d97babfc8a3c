#include <algorithm>
#include <iostream>
#include <memory>

#include "libtsenv/product_environment.h"
#include "tlmctl/commands.h"
#include "tlmctl/job_cells.h"
#include "tlmctl/outcomes.h"
#include "tlmctl/server_log.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kUsualCount = 20;
constexpr std::size_t kNarrowestOutcome = 13;  // all of it but the exit code

Colour ColourOf(const std::string& outcome) {
  if (outcome == "finished") return Colour::Good;
  if (outcome == "aborted" || outcome == "launch-failed") return Colour::Bad;
  return outcome == "running" || outcome == "starting" ? Colour::Busy : Colour::None;
}

void PrintTable(const std::vector<PastJob>& jobs) {
  constexpr std::size_t kWhole = Column::kWhole;
  Table table({{"ID", 5, kWhole},
               {"HANDLE", 4, kWhole},
               {"SERVER", 0, 15},
               {"NAME", 2, kNarrowestName},
               {"SUBMITTED", 1, kWhole},
               {"OUTCOME", 3, kNarrowestOutcome}});
  for (const PastJob& job : jobs) {
    table.Add({{job.Entry.Id},
               {std::to_string(job.Entry.Handle)},
               {job.Entry.Server},
               {job.Entry.Name},
               {MomentText(job.Entry.Submitted)},
               {OutcomeText(job), ColourOf(job.Outcome)}});
  }
  table.Print();
}

template <class Past>
void KeepLatest(std::vector<Past>& jobs, std::size_t count) {
  jobs.erase(jobs.begin(), jobs.end() - static_cast<std::ptrdiff_t>(std::min(jobs.size(), count)));
}

int History(const Settings& settings, std::size_t count) {
  std::vector<LedgerEntry> entries = Ledger().Read();
  KeepLatest(entries, count);
  if (settings.Quiet) {
    for (const LedgerEntry& entry : entries) std::cout << '@' << entry.Id << '\n';
    return kGood;
  }
  const std::vector<PastJob> jobs = LearnOutcomes(settings, entries);
  if (settings.Json) {
    Json list = Json::array();
    for (const PastJob& job : jobs) list.push_back(ToJson(job));
    PrintJson({{"jobs", std::move(list)}});
  } else if (jobs.empty()) {
    Note(settings, "nothing was submitted from here by this user");
  } else {
    PrintTable(jobs);
  }
  return kGood;
}

void PrintTable(const std::vector<LoggedJob>& jobs) {
  constexpr std::size_t kWhole = Column::kWhole;
  Table table({{"ID", 3, kWhole},
               {"HANDLE", 5, kWhole},
               {"CLIENT", 2, kNarrowestName},
               {"NAME", 4, kNarrowestName},
               {"SUBMITTED", 1, kWhole},
               {"TIME", 0, kWhole},
               {"OUTCOME", 6, kNarrowestOutcome}});
  for (const LoggedJob& job : jobs) {
    table.Add({{job.Entry.Id.empty() ? kNothing : job.Entry.Id},
               {std::to_string(job.Entry.Handle)},
               {job.Client},
               {job.Entry.Name.empty() ? kNothing : job.Entry.Name},
               {MomentText(job.Entry.Submitted)},
               {job.Elapsed ? DurationText(static_cast<std::int64_t>(*job.Elapsed)) : kNothing},
               {OutcomeText(job) + (job.Peer.empty() ? "" : ", on " + job.Peer), ColourOf(job.Outcome)}});
  }
  table.Print();
}

// The setting by which a server of this product finds it.
std::string UsualServerLog() {
  const std::string name = Identity().RUNTIME_JM_ENVIRONMENT + "_JOB_LOG";
  const std::string path = ProductValue(name.c_str()).value_or("");
  if (!path.empty()) return path;
  throw Failure{kUsage, "where the server's job log lies is not set here",
                "name it behind --server-log, or set " + name};
}

void TellGaps(const Settings& settings, const ServerLog& log, const std::string& path) {
  if (log.Unreadable != 0) {
    Note(settings, "lines of " + path + " that are torn, or none of a job log: " + std::to_string(log.Unreadable));
  }
  if (log.Missing != 0) {
    Note(settings, "lines that are missing because the server could not write them: " + std::to_string(log.Missing));
  }
}

int ServerHistory(const Settings& settings, const std::string& path, std::size_t count) {
  ServerLog log = ReadServerLog(path);
  TellGaps(settings, log, path);
  KeepLatest(log.Jobs, count);
  if (settings.Quiet) {
    for (const LoggedJob& job : log.Jobs) std::cout << job.Entry.Handle << '\n';
  } else if (settings.Json) {
    Json list = Json::array();
    for (const LoggedJob& job : log.Jobs) list.push_back(ToJson(job));
    PrintJson({{"jobs", std::move(list)}, {"unreadable_lines", log.Unreadable}, {"missing_lines", log.Missing}});
  } else if (log.Jobs.empty()) {
    Note(settings, "no job stands in " + path);
  } else {
    PrintTable(log.Jobs);
  }
  return kGood;
}

struct Options {
  std::size_t Count = kUsualCount;
  CLI::Option* IsOfServer = nullptr;
  std::string ServerLog;
};

}  // namespace

void AddHistory(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.AddCommand(
      {.Name = "history",
       .Description = "List what I have submitted from this machine, and what became of it",
       .Examples = {{"history", "the last 20"},
                    {"history -n 100 --json", "more, for programs"},
                    {"history --server-log", "on the server's machine: jobs of all users"}},
       .Operations = {"GetJob"},
       .Details =
           "That stands in a file under $XDG_STATE_HOME, ~/.local/state by default. The server is asked about\n"
           "those of its jobs whose ends are not known yet; a job on another server is asked for with --server.\n"
           "An ID behind an @ names a job in the other commands; its first digits are enough. A job is \"gone\"\n"
           "when its server has let it go, or has been restarted, before its end was seen from here.\n"
           "With --server-log it is the server's own job log that is read, and no server is asked. A job is \"lost\"\n"
           "when its server has ended before it; TIME is that of its last program."},
      [options](const Settings& settings) {
        if (options->IsOfServer->count() == 0) return History(settings, options->Count);
        const std::string& path = options->ServerLog;
        return ServerHistory(settings, path.empty() ? UsualServerLog() : path, options->Count);
      });
  options->IsOfServer = command
                            .add_option("--server-log", options->ServerLog,
                                        "Jobs of all users, from this job log of a server; that of the settings if "
                                        "none is named")
                            ->type_name(kFileValue)
                            ->expected(0, 1);
  command.add_option("-n", options->Count, "So many of the latest")
      ->type_name("NUMBER")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
}

}  // namespace tlm::ctl
