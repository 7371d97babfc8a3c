#include <algorithm>
#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/job_cells.h"
#include "tlmctl/outcomes.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kUsualCount = 20;

Colour ColourOf(const std::string& outcome) {
  if (outcome == "finished") return Colour::Good;
  if (outcome == "aborted" || outcome == "launch-failed") return Colour::Bad;
  return outcome == "running" || outcome == "starting" ? Colour::Busy : Colour::None;
}

void PrintTable(const std::vector<PastJob>& jobs) {
  constexpr std::size_t kWhole = Column::kWhole;
  constexpr std::size_t kNarrowestOutcome = 13;  // all of it but the exit code
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

int History(const Settings& settings, std::size_t count) {
  std::vector<LedgerEntry> entries = Ledger().Read();
  entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(std::min(entries.size(), count)));
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

}  // namespace

void AddHistory(Program& program) {
  const auto count = std::make_shared<std::size_t>(kUsualCount);
  CLI::App& command = program.AddCommand(
      {.Name = "history",
       .Description = "List what I have submitted from this machine, and what became of it",
       .Examples = {{"history", "the last 20"}, {"history -n 100 --json", "more, for programs"}},
       .Operations = {"GetJob"},
       .Details =
           "That stands in a file under $XDG_STATE_HOME, ~/.local/state by default. The server is asked about\n"
           "those of its jobs whose ends are not known yet; a job on another server is asked for with --server.\n"
           "An ID behind an @ names a job in the other commands; its first digits are enough. A job is \"gone\"\n"
           "when its server has let it go, or has been restarted, before its end was seen from here."},
      [count](const Settings& settings) { return History(settings, *count); });
  command.add_option("-n", *count, "So many of the latest")
      ->type_name("NUMBER")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
}

}  // namespace tlm::ctl
