#include "tlmctl/course.h"

#include <chrono>
#include <iostream>
#include <limits>

#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/download.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/job_json.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};
constexpr std::chrono::seconds kOwnershipPatience{90};
constexpr int kBarWidth = 30;
constexpr char kManifestSuffix[] = ".crc";  // no result of anybody's

}  // namespace

Course::Course(Link& link, const Settings& settings, const LedgerEntry& entry, const CourseOptions& options)
    : link_(link), settings_(settings), job_{entry.Handle, {}, entry}, options_(options), line_(settings) {
  job_.State.AnalysisID = entry.Name;
}

int Course::Follow() {
  while (!Look()) {
    if (TakeInterrupt() && LeavesOnInterrupt()) return Leave();
    platform::Sleep(kPollInterval);
  }
  line_.Clear();
  return vanished_ ? TellVanished(removed_) : End();
}

// True once there is nothing more to wait for.
bool Course::Look() {
  return link_.Persist([this](QorJMClient& client) {
    std::optional<Task> task = FetchJob(client, job_.Handle);
    vanished_ = !task || IdOfNote(task->ClientNote) != job_.Entry->Id;
    if (vanished_) {
      removed_ = !task && WasRemovedByClient(client, job_.Handle);
      return true;
    }
    job_.State = *std::move(task);
    // After a loss the server may still believe in the former connection, and gives nothing to this one.
    const bool owned = client.TakeOwnership(job_.Handle);
    if (owned) refusedSince_.reset();
    PassOutput(client);
    ShowState();
    const bool ended = HasEnded(job_.State);
    if (ended) PassOutput(client);  // what came since; a finished job goes with its last results, and its output too
    PassResults(client);
    return ended && (owned || IsRefusedForGood());
  });
}

bool Course::IsRefusedForGood() {
  const auto now = std::chrono::steady_clock::now();
  if (!refusedSince_) refusedSince_ = now;
  if (now - *refusedSince_ < kOwnershipPatience) return false;
  Note(settings_, Subject(job_.Handle, job_.State) + " belongs to another client by now, which has its results");
  return true;
}

void Course::ShowState() {
  if (settings_.Json) {
    const std::string state = StatusWord(job_.State.Status) + std::to_string(job_.State.Progress);
    if (state != shown_) PrintJson({{"event", "state"}, {"job", JobJson(job_.Handle, job_.State)}});
    shown_ = state;
    return;
  }
  if (!atLineStart_) return;
  line_.Show(Subject(job_.Handle, job_.State) + "  " + ProgressBar(job_.State.Progress, kBarWidth) + "  " +
             StatusText(job_.State.Status) + "  " + ElapsedText(job_.State));
}

void Course::PassOutput(QorJMClient& client) {
  while (options_.ShowOutput) {
    std::string text;
    client.ReadOutput(job_.Handle, offset_, text);
    const bool fits = text.size() <= std::numeric_limits<std::uint32_t>::max() - offset_;
    if (text.empty() || !fits) return;
    offset_ += static_cast<std::uint32_t>(text.size());
    line_.Clear();
    if (settings_.Json) {
      PrintJson({{"event", "output"}, {"handle", job_.Handle}, {"text", text}});
    } else {
      std::cout << text << std::flush;
      atLineStart_ = text.back() == '\n';
    }
  }
}

void Course::PassResults(QorJMClient& client) {
  if (!options_.FetchResults || (job_.State.ResultFlags & kResultsAvailable) == 0) return;
  const auto files = FetchResults(client, settings_, job_.Handle, job_.Entry->Directory);
  if (files.empty()) return;
  line_.Clear();
  if (settings_.Json) PrintJson({{"event", "results"}, {"handle", job_.Handle}, {"files", ToJson(files)}});
  for (const ReceivedFile& file : files) {
    if (file.Path.ends_with(kManifestSuffix)) continue;
    received_.insert(file.Path);
    if (!settings_.Json) Note(settings_, "received " + file.Path + ", " + SizeText(file.Size));
  }
}

bool Course::LeavesOnInterrupt() {
  line_.Clear();
  OnInterrupt answer = options_.Interrupted;
  if (answer == OnInterrupt::Ask && MayAsk(settings_)) {
    std::cerr << Subject(job_.Handle, job_.State)
              << " has not ended. [l]eave it running, [r]emove it, or [c]ontinue here? " << std::flush;
    std::string word;
    std::getline(std::cin, word);
    std::cin.clear();
    if (word.starts_with('c')) return false;
    if (word.starts_with('r')) answer = OnInterrupt::Remove;
  }
  if (answer != OnInterrupt::Remove) return true;
  link_.Persist([this](QorJMClient& client) { return client.RemoveJob(job_.Handle); });
  Note(settings_, Subject(job_.Handle, job_.State) + " is being removed");
  return false;  // its end is awaited
}

int Course::Leave() {
  Note(settings_, Subject(job_.Handle, job_.State) + " goes on; 'tlmctl wait @" + job_.Entry->Id +
                      "' waits for it, 'tlmctl results @" + job_.Entry->Id + "' fetches its results");
  return kInterrupted;
}

int Course::End() {
  link_.Persist([this](QorJMClient& client) {
    removed_ = WasRemovedByClient(client, job_.Handle);
    if (!options_.Keep) client.ReleaseJob(job_.Handle);
    AwaitArrival(client);
  });
  Remember(job_);
  const int code = ExitCodeOf(job_.State, removed_);
  TellEnd(code);
  return code;
}

int Course::TellVanished(bool removed) {
  if (removed) {
    job_.State.Status = Aborted;
    Remember(job_);
    throw Failure{kAborted, Subject(job_.Handle, job_.State) + " was removed by a client"};
  }
  if (HasSucceeded(job_.State)) return ExitCodeOf(job_.State, false);
  throw Failure{kLost, "the server has no " + Subject(job_.Handle, job_.State) + " any more",
                "it has been restarted, which ends jobs and forgets them; 'tlmctl resubmit @" + job_.Entry->Id +
                    "' starts it anew"};
}

void Course::TellEnd(int code) {
  const Task& task = job_.State;
  if (settings_.Json) {
    return PrintJson({{"event", "end"}, {"job", JobJson(job_.Handle, task)}, {"removed", removed_}, {"code", code}});
  }
  if (!atLineStart_) std::cout << std::endl;
  std::string text = Subject(job_.Handle, task) + ": " + StatusText(task.Status);
  if (ExitCodeText(task) != kNothing) text += ", exit code " + ExitCodeText(task) + ", " + ElapsedText(task);
  if (!received_.empty()) text += ", files received: " + std::to_string(received_.size());
  Note(settings_, text);
  if (task.Status == LaunchFailed) {
    Note(settings_, "its program could not be started: is it in the bin directory of the server's installation?");
  } else if (task.Status == Aborted && !removed_ && task.ExitCode == 0) {
    Note(settings_,
         "its program ended with 0 but did not report success to the server; without --reports the exit code "
         "alone decides");
  }
}

}  // namespace tlm::ctl
