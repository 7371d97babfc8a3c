#include <algorithm>
#include <iostream>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/connection.h"
#include "tlmctl/job_cells.h"
#include "tlmctl/job_json.h"
#include "tlmctl/known_jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kNarrowestNote = 24;

struct ListOptions {
  bool Mine = false;
  std::vector<std::string> States;
};

bool IsWanted(const ListOptions& options, const KnownJob& job) {
  if (options.Mine && !job.Entry) return false;
  const auto& states = options.States;
  return states.empty() || std::find(states.begin(), states.end(), StatusWord(job.State.Status)) != states.end();
}

void PrintTable(const std::vector<KnownJob>& jobs) {
  constexpr std::size_t kWhole = Column::kWhole;
  const bool hasNotes = std::any_of(jobs.begin(), jobs.end(),
                                    [](const KnownJob& job) { return !PlainNote(job.State.ClientNote).empty(); });
  std::vector<Column> columns{{"HANDLE", 7, kWhole},   {"NAME", 4, kNarrowestName}, {"STATE", 6, kWhole},
                              {"PROGRESS", 5, kWhole}, {"EXIT", 3, kWhole},         {"SUBMITTED", 1, kWhole},
                              {"ELAPSED", 2, kWhole}};
  if (hasNotes) columns.push_back({"NOTE", 0, kNarrowestNote});
  Table table(columns);
  for (const KnownJob& job : jobs) {
    const Task& task = job.State;
    std::vector<Cell> row{{std::to_string(job.Handle)}, NameCell(task),       StateCell(task),
                          ProgressCell(task),           {ExitCodeText(task)}, {MomentText(task.Scheduled)},
                          {ElapsedText(task)}};
    if (hasNotes) row.push_back({PlainNote(task.ClientNote)});
    table.Add(std::move(row));
  }
  table.Print();
}

int List(const Settings& settings, const ListOptions& options) {
  QorJMClient client;
  Connect(client, settings);
  std::vector<KnownJob> jobs = FetchAllKnownJobs(client);
  std::erase_if(jobs, [&](const KnownJob& job) { return !IsWanted(options, job); });
  if (settings.Json) {
    Json list = Json::array();
    for (const KnownJob& job : jobs) list.push_back(JobJson(job.Handle, job.State));
    PrintJson({{"jobs", std::move(list)}});
  } else if (settings.Quiet) {
    for (const KnownJob& job : jobs) std::cout << job.Handle << '\n';
  } else if (jobs.empty()) {
    Note(settings, "no such jobs on the server; 'tlmctl history' tells of earlier ones");
  } else {
    PrintTable(jobs);
  }
  return kGood;
}

}  // namespace

void AddList(Program& program) {
  const auto options = std::make_shared<ListOptions>();
  CLI::App& command =
      program.AddCommand({.Name = "list",
                          .Description = "List the jobs of the server",
                          .Examples = {{"list", "all of them"},
                                       {"list --mine --state running", "those that I have submitted and that run"},
                                       {"list -q --state aborted,launch-failed", "handles of those that failed"}},
                          .Operations = {"ListJobs", "GetJob"}},
                         [options](const Settings& settings) { return List(settings, *options); });
  command.add_flag("--mine,!--all", options->Mine, "Only what I have submitted from this machine, or all");
  std::vector<std::string> words;
  for (std::uint32_t status = Queued; status <= Removed; ++status) words.push_back(StatusWord(status));
  command.add_option("--state", options->States, "Only jobs in this state, or in one of several")
      ->type_name("STATE")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(CLI::IsMember(words));
}

}  // namespace tlm::ctl
