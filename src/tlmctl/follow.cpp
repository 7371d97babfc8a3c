#include "tlmctl/follow.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <string>

#include "platform/terminal.h"
#include "platform/thread.h"
#include "tlmctl/jobs.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};
constexpr int kBarWidth = 30;

std::string Subject(std::uint64_t handle, const Task& task) {
  return "job " + std::to_string(handle) + (task.AnalysisID.empty() ? "" : " " + task.AnalysisID);
}

// The course of one job on standard output.
class CourseDisplay {
 public:
  explicit CourseDisplay(std::uint64_t handle) : handle_(handle) {}

  // Without a terminal the end is told by another line.
  void Show(const Task& task) {
    if (inPlace_) {
      std::cout << "\r\033[K" << Subject(handle_, task) << "  " << ProgressBar(task.Progress, kBarWidth) << "  "
                << StatusText(task.Status) << "  " << ElapsedText(task) << std::flush;
      return;
    }
    if (HasEnded(task)) return;
    std::string line = Subject(handle_, task) + ": " + StatusText(task.Status);
    if (task.Status == Running) line += ", " + std::to_string(task.Progress) + " %";
    if (line != shown_) std::cout << line << std::endl;
    shown_ = std::move(line);
  }

  // Leaves the line of a terminal.
  void Close() const {
    if (inPlace_) std::cout << std::endl;
  }

 private:
  const std::uint64_t handle_;
  const bool inPlace_ = platform::IsTerminal(stdout);
  std::string shown_;
};

void TellEnd(std::uint64_t handle, const Task& task) {
  std::cout << Subject(handle, task) << ": " << StatusText(task.Status);
  if (ExitCodeText(task) != kNothing) std::cout << ", exit code " << ExitCodeText(task) << ", " << ElapsedText(task);
  std::cout << std::endl;
  if (task.Status == Aborted && task.Started != 0 && task.ExitCode == 0) {
    std::cerr << "tlmctl: the program ended with 0 but did not report success to the server; for one that never does, "
                 "submit with --complete-on-failure\n";
  }
  if (task.Status == Aborted || task.Status == LaunchFailed) {
    std::cerr << "tlmctl: 'tlmctl output " << handle << "' shows what it said\n";
  }
}

bool WasRemovedByClient(QorJMClient& client, std::uint64_t handle) {
  HandleList removed;
  client.ListRemovedJobs(removed);
  return std::find(removed.begin(), removed.end(), handle) != removed.end();
}

ExitCode TellVanished(QorJMClient& client, std::uint64_t handle, const Task& last) {
  const bool removed = WasRemovedByClient(client, handle);
  std::cout << Subject(handle, last) << ": no longer on the server" << (removed ? ", removed by a client" : "")
            << "; last known: " << StatusText(last.Status) << ", " << last.Progress << " %" << std::endl;
  return removed ? ExitCode::JobFailed : ExitCode::Good;
}

}  // namespace

ExitCode FollowJob(QorJMClient& client, std::uint64_t handle) {
  CourseDisplay display(handle);
  Task last = FetchKnownJob(client, handle);
  display.Show(last);
  while (!HasEnded(last)) {
    platform::Sleep(kPollInterval);
    std::optional<Task> now = FetchJob(client, handle);
    if (!now) {
      display.Close();
      return TellVanished(client, handle, last);
    }
    last = *std::move(now);
    display.Show(last);
  }
  display.Close();
  TellEnd(handle, last);
  return HasSucceeded(last) ? ExitCode::Good : ExitCode::JobFailed;
}

}  // namespace tlm::ctl
