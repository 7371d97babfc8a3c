#include <algorithm>
#include <array>
#include <iostream>
#include <vector>

#include "tlmctl/commands.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

using Row = std::array<std::string, 7>;

const Row kTitles{"HANDLE", "NAME", "STATE", "PROGRESS", "EXIT", "SUBMITTED", "ELAPSED"};

Row RowOf(std::uint64_t handle, const Task& task) {
  return {std::to_string(handle),  task.AnalysisID.empty() ? kNothing : task.AnalysisID,
          StatusText(task.Status), std::to_string(task.Progress) + " %",
          ExitCodeText(task),      LocalTimeText(task.Scheduled),
          ElapsedText(task)};
}

void Print(const std::vector<Row>& rows) {
  std::array<std::size_t, kTitles.size()> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] + 2 - row[i].size(), ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    std::cout << line << '\n';
  }
}

ExitCode List(const ServerOptions& server) {
  QorJMClient client;
  Connect(client, server);
  HandleList handles;
  client.ListJobs(handles);
  std::vector<Row> rows{kTitles};
  for (const std::uint64_t handle : handles) {
    // One that was there a moment ago may have gone.
    if (const std::optional<Task> task = FetchJob(client, handle)) rows.push_back(RowOf(handle, *task));
  }
  Print(rows);
  return ExitCode::Good;
}

}  // namespace

void AddList(Program& program) { program.AddCommand("list", "List the jobs of the server", List); }

}  // namespace tlm::ctl
