#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>

#include "tlmctl/commands.h"
#include "tlmctl/console.h"
#include "tlmctl/job_output.h"
#include "tlmctl/reason.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::size_t kOutputLines = 10;

std::vector<Reason> ReasonsOf(QorJMClient& client, const Settings& settings, const KnownJob& job) {
  const Task& task = job.State;
  std::vector<Reason> reasons;
  if (HasEnded(task)) {
    reasons = WhyItEnded(client, settings, job);
  } else if (task.Status == Queued) {
    reasons = WhyItWaits(client, settings, job);
  } else if (task.Status == Starting) {
    reasons = {{"starting", "its process is about to be started"}};
  } else {
    const bool isElsewhere = task.RunClass == kRunDistributed && task.Started == 0;
    reasons = {
        {"running",
         (isElsewhere ? "it runs on another server of the pool" : "it runs since " + LocalTimeText(task.Started)) +
             " and is at " + std::to_string(task.Progress) + " %",
         "'tlmctl watch " + std::to_string(job.Handle) + "' follows it"}};
  }
  if (task.ClientPort != 0) {
    reasons.push_back({"owned",
                       "a client at port " + std::to_string(task.ClientPort) + " of " + Printable(task.ClientHost) +
                           " is connected for it",
                       "its output and its results are for that one alone meanwhile"});
  }
  return reasons;
}

// A later job of the same directory and stem writes its output in place of this one's.
bool HasLostItsOutput(QorJMClient& client, const KnownJob& job) {
  const std::vector<KnownJob> all = FetchAllKnownJobs(client);
  return std::any_of(all.begin(), all.end(), [&](const KnownJob& other) {
    return other.Handle > job.Handle && other.State.Started != 0 && other.State.WorkDir == job.State.WorkDir &&
           other.State.ResultStem == job.State.ResultStem;
  });
}

// The last of what a failed job has written, if this client may have it.
std::vector<std::string> LastLines(QorJMClient& client, const Settings& settings, const KnownJob& job) {
  std::vector<std::string> lines;
  if (!HasEnded(job.State) || HasSucceeded(job.State) || job.State.Started == 0) return lines;
  if (HasLostItsOutput(client, job)) return lines;
  SayHello(client, settings);
  if (!client.TakeOwnership(job.Handle)) return lines;
  const std::uint64_t offset = OffsetOfLastLines(client, job.Handle, kOutputLines);
  std::string text = ReadOutputFrom(client, job.Handle, offset);
  // The server's own message about a program that it could not start has two bytes for each character.
  std::erase(text, '\0');
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(std::move(line));
  return lines;
}

void Print(const KnownJob& job, const std::vector<Reason>& reasons, const std::vector<std::string>& output) {
  std::cout << SubjectAndState(job) << '\n';
  for (const Reason& reason : reasons) {
    std::cout << "- " << reason.Text << '\n';
    std::istringstream hint(reason.Hint);
    for (std::string line; std::getline(hint, line);) std::cout << "  " << Coloured(line, Colour::Dim) << '\n';
  }
  if (output.empty()) return;
  std::cout << "The last lines of its output:\n";
  for (const std::string& line : output) std::cout << "  " << Printable(line) << '\n';
}

Json DocumentOf(const KnownJob& job, const std::vector<Reason>& reasons, const std::vector<std::string>& output) {
  Json list = Json::array();
  for (const Reason& reason : reasons) {
    list.push_back({{"code", reason.Code}, {"text", reason.Text}, {"hint", reason.Hint}});
  }
  return {{"handle", job.Handle},
          {"status", StatusWord(job.State.Status)},
          {"reasons", std::move(list)},
          {"output", output}};
}

int Why(const Settings& settings, const std::string& word) {
  QorJMClient client;
  Connect(client, settings);
  const KnownJob job = FindJob(client, settings, word);
  const std::vector<Reason> reasons = ReasonsOf(client, settings, job);
  const std::vector<std::string> output = LastLines(client, settings, job);
  if (settings.Json) {
    PrintJson(DocumentOf(job, reasons, output));
  } else if (settings.Quiet) {
    for (const Reason& reason : reasons) std::cout << reason.Code << '\n';
  } else {
    Print(job, reasons, output);
  }
  return kGood;
}

}  // namespace

void AddWhy(Program& program) {
  const auto job = std::make_shared<std::string>();
  CLI::App& command = program.AddCommand(
      {.Name = "why",
       .Description = "Say what a job waits for, or how and why it ended",
       .Examples = {{"why 8", "in words"}, {"why -q 8", "in codes, as in queue-limit"}},
       .Operations = {"GetJob", "ListJobs", "ListRemovedJobs", "IsQueueRunning", "GetQueueStartTime", "GetQueueLimit",
                      "GetJobCount", "GetLocalLimit", "GetServerPool", "Hello", "TakeOwnership", "ReadOutput"},
       .Details = "Of a job that may run on any server of the pool it asks those servers, too, for 3 seconds."},
      [job](const Settings& settings) { return Why(settings, *job); });
  command.add_option("JOB", *job, kJobHelp)->required()->type_name(kJobValue);
}

}  // namespace tlm::ctl
