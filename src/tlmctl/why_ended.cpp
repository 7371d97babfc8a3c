#include <map>

#include "tlmctl/reason.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::uint32_t kFailedStart = 255;
constexpr std::uint32_t kSignal = 128;
constexpr std::uint32_t kLastSignal = 64;

// That it never had a process.
std::vector<Reason> WhyItNeverStarted(QorJMClient& client, const Task& task) {
  const std::optional<Task> predecessor = task.Predecessor != 0 ? FetchJob(client, task.Predecessor) : std::nullopt;
  if (predecessor && HasEnded(*predecessor) && !HasSucceeded(*predecessor)) {
    return {{"predecessor-failed",
             SubjectAndState({task.Predecessor, *predecessor, {}}) + ", for which it waited, did not succeed",
             "'tlmctl why " + std::to_string(task.Predecessor) + "' tells more about that one"}};
  }
  if (EndedElsewhere(task)) {
    return {{"elsewhere", "it ended without success on another server, which does not pass on the exit code"}};
  }
  return {{"never-started", "it was ended before its start, together with a job on which it hung"}};
}

std::vector<Reason> WhyNotLaunched(QorJMClient& client, const Settings& settings, const Task& task) {
  if (task.ExitCode == kFailedStart) {
    return {{"exit-255", "its program ended with exit code 255, which counts as a start that failed"}};
  }
  if (task.Started == 0) return WhyItNeverStarted(client, task);
  std::string hint = "is it in the bin directory of the server's installation, and may the server's user execute it?";
  // One that was sent with its files has a directory of the server.
  if (!task.WorkDir.ends_with('/')) hint += "\nDoes the server reach the directory " + Printable(task.WorkDir) + "?";
  const std::string program = task.Command.substr(0, task.Command.find_first_of(" \t;"));
  std::vector<Reason> reasons{{"no-program", Printable(program) + " could not be started", hint}};
  if (!SayHello(client, settings)) {
    reasons.push_back({"no-release", "the server has no programs of release " + settings.Release + " at all",
                       "'tlmctl doctor' tells more"});
  }
  return reasons;
}

Reason SignalReason(std::uint32_t signal) {
  static const std::map<std::uint32_t, const char*> kKnown{
      {6, "it gave up by itself"},
      {8, "a division by zero, perhaps"},
      {9, "the machine ran out of memory, perhaps, or somebody has killed it"},
      {11, "a fault in the program"},
      {15, "it was asked to end"},
      {24, "a limit on its time"},
      {25, "a limit on the size of its files"}};
  const auto known = kKnown.find(signal);
  return {"signal", "signal " + std::to_string(signal) + " ended its program",
          known == kKnown.end() ? "" : known->second};
}

Reason WhyAborted(const Task& task) {
  if (EndedUnderNoServer(task)) {
    return {"unknown",
            "its process has ended without a report of success; its exit code is not known, as the server "
            "had not started it"};
  }
  if (task.ExitCode == 0 && task.CompleteOnFailure) {
    return {"ended-by-server", "the server has ended it", "the last lines of its output tell why"};
  }
  if (task.ExitCode == 0) {
    return {"no-report", "its program ended with exit code 0, but had not reported success to the server",
            "one that never does is for 'tlmctl run' or 'tlmctl submit --complete-on-failure'"};
  }
  if (task.ExitCode > kSignal && task.ExitCode <= kSignal + kLastSignal) return SignalReason(task.ExitCode - kSignal);
  return {"exit-code",
          "its program ended with exit code " + std::to_string(task.ExitCode) + " and reported no success"};
}

std::vector<Reason> WhySucceeded(const KnownJob& job) {
  const Task& task = job.State;
  std::vector<Reason> reasons{{"succeeded", "it has succeeded, exit code " + ExitCodeText(task)}};
  if (EndedUnderNoServer(task)) {
    reasons.front().Text = "it has reported success; its exit code is not known, as the server had not started it";
  } else if (EndedElsewhere(task) && task.CompleteOnFailure) {
    reasons = {{"elsewhere", "it has ended on another server, which does not pass on the exit code",
                "so nobody knows whether it has succeeded; its output and its results tell more"}};
  } else if (EndedElsewhere(task)) {
    reasons.front().Text = "it has reported success, on another server";
  } else if (task.ExitCode != 0 && task.CompleteOnFailure) {
    reasons.front().Text = "its program ended with exit code " + ExitCodeText(task);
    reasons.push_back({"exempt", "that counts as success, for so it was submitted"});
  }
  if ((task.ResultFlags & kResultsAvailable) != 0) {
    reasons.push_back({"results", "it stays on the server until its results are fetched",
                       "'tlmctl results " + std::to_string(job.Handle) + "' does that"});
  }
  return reasons;
}

}  // namespace

std::vector<Reason> WhyItEnded(QorJMClient& client, const Settings& settings, const KnownJob& job) {
  const Task& task = job.State;
  if (HasSucceeded(task)) return WhySucceeded(job);
  if (WasRemovedByClient(client, job.Handle)) return {{"removed", "a client has removed it"}};
  if (task.Status == LaunchFailed) return WhyNotLaunched(client, settings, task);
  if (task.Started == 0) return WhyItNeverStarted(client, task);
  return {WhyAborted(task)};
}

}  // namespace tlm::ctl
