#include "tlmctl/course.h"

#include <chrono>
#include <iostream>
#include <map>

#include "platform/terminal.h"
#include "platform/thread.h"
#include "tlmctl/console.h"
#include "tlmctl/interrupt.h"
#include "tlmctl/job_json.h"
#include "tlmctl/texts.h"

namespace tlm::ctl {

namespace {

constexpr std::chrono::milliseconds kPollInterval{250};
constexpr std::chrono::seconds kFetchPause{10};  // after a fetch that failed
constexpr int kMostPieces = 8;
constexpr int kBarWidth = 30;
constexpr char kManifestSuffix[] = ".crc";  // no result of anybody's

}  // namespace

Course::Course(Link& link, const Settings& settings, const LedgerEntry& entry, const CourseOptions& options)
    : link_(link),
      settings_(settings),
      job_{entry.Handle, {}, entry},
      options_(options),
      line_(settings),
      output_(settings, entry.Handle) {
  job_.State.AnalysisID = entry.Name;
}

int Course::Follow() {
  // On another thread, and perhaps when this object is gone.
  SetLastWords([&settings = settings_, words = WordsOfLeaving()] { Note(settings, words); });
  for (bool isOver = false; !isOver;) {
    try {
      isOver = Look();
      if (isOver) break;
      EndIfInterrupted();
      platform::Sleep(kPollInterval);
    } catch (const Failure& failure) {
      if (failure.Code != kInterrupted) throw;
      if (LeavesOnInterrupt()) return Leave();
    }
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
    const bool isOwner = ownership_.Take(client, job_.Handle);
    const bool hasEnded = HasEnded(job_.State);
    PassOutput(client, hasEnded);
    ShowState();
    if (isOwner) PassResults(client, hasEnded);
    return hasEnded && (isOwner || ownership_.IsRefusedForGood());
  });
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

void Course::PassOutput(QorJMClient& client, bool isLast) {
  // A program may write faster than this reads, and its state is to be looked at, too.
  for (int pieces = 0; options_.ShowOutput && !output_.IsAtLimit() && (isLast || pieces < kMostPieces); ++pieces) {
    const std::string text = output_.Next(client, isLast);
    if (text.empty()) return;
    line_.Clear();
    if (settings_.Json) {
      PrintJson({{"event", "output"}, {"handle", job_.Handle}, {"text", text}});
    } else {
      std::cout << text << std::flush;
      atLineStart_ = text.back() == '\n';
    }
  }
}

void Course::PassResults(QorJMClient& client, bool isLast) {
  const auto now = std::chrono::steady_clock::now();
  if (!options_.FetchResults || (job_.State.ResultFlags & kResultsAvailable) == 0) return;
  if (!isLast && now < nextFetch_) return;
  try {
    // The job may have ended since it was looked at.
    const auto look = [&] {
      std::optional<Task> task = isLast ? std::nullopt : FetchJob(client, job_.Handle);
      if (!task || !HasEnded(*task)) return;
      job_.State = *std::move(task);
      isLast = (job_.State.ResultFlags & kResultsAvailable) == 0;
      PassOutput(client, true);
    };
    TellResults(FetchResults(client, settings_, job_, job_.Entry->Directory, look));
    fetchFailure_.reset();
    delivered_ = isLast;
    AwaitArrival(client);
    if (!isLast) deliveredOn_ = link_.Connections();
  } catch (const Failure& failure) {
    if (failure.Code == kInterrupted) throw;
    line_.Clear();
    if (!isLast && !fetchFailure_) Note(settings_, failure.Text + ", for now");
    fetchFailure_ = failure;
    nextFetch_ = now + kFetchPause;
  }
}

void Course::TellResults(const std::vector<ReceivedFile>& files) {
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
  const OnInterrupt answer =
      options_.Interrupted == OnInterrupt::Ask && MayAsk(settings_) ? AskWhatBecomes() : options_.Interrupted;
  if (answer == OnInterrupt::Continue) return false;
  if (answer != OnInterrupt::Remove) return true;
  link_.Persist([this](QorJMClient& client) { return client.RemoveJob(job_.Handle); });
  Note(settings_, Subject(job_.Handle, job_.State) + " is being removed");
  return false;  // its end is awaited
}

OnInterrupt Course::AskWhatBecomes() const {
  static const std::map<char, OnInterrupt> kAnswers{
      {'l', OnInterrupt::Leave}, {'r', OnInterrupt::Remove}, {'c', OnInterrupt::Continue}};
  platform::KeyInput keys;
  std::cerr << Printable(Subject(job_.Handle, job_.State))
            << " has not ended. [l]eave it running, [r]emove it, or [c]ontinue here? " << std::flush;
  while (!TakeInterrupt()) {
    const auto key = keys.Wait(kPollInterval);
    const auto answer = kAnswers.find(key.value_or('\0'));
    if (answer == kAnswers.end()) continue;
    std::cerr << answer->first << std::endl;
    return answer->second;
  }
  std::cerr << std::endl;
  return OnInterrupt::Leave;
}

std::string Course::WordsOfLeaving() const {
  return Subject(job_.Handle, job_.State) + " goes on; 'tlmctl wait @" + job_.Entry->Id +
         "' waits for it, 'tlmctl results @" + job_.Entry->Id + "' fetches its results";
}

int Course::Leave() const {
  Note(settings_, WordsOfLeaving());
  return kInterrupted;
}

int Course::End() {
  const bool hasAll = ownership_.IsOwner() && !fetchFailure_;
  std::vector<Reason> reasons;
  link_.Persist([&](QorJMClient& client) {
    removed_ = WasRemovedByClient(client, job_.Handle);
    if (!removed_ && !HasSucceeded(job_.State)) reasons = WhyItEnded(client, settings_, job_);
    if (!options_.Keep && hasAll) client.ReleaseJob(job_.Handle);
    AwaitArrival(client);
  });
  Remember(job_);
  const int code = ExitCodeOf(job_.State, removed_);
  TellEnd(code, reasons);
  if (hasAll) return code;
  if (fetchFailure_) throw *fetchFailure_;
  throw Failure{kRefused,
                Subject(job_.Handle, job_.State) +
                    " belongs to another connection, and what is left of its output and "
                    "results is not here",
                "'tlmctl results @" + job_.Entry->Id + "' fetches the results once that one has ended"};
}

// Results of a job that ends on a peer are here a moment before its end is. Who takes them in between takes the last
// thing that kept it on the server, which lets go no other one by itself.
bool Course::LeftWithItsResults() const {
  return job_.State.RunClass == kRunDistributed && deliveredOn_ == link_.Connections() && !fetchFailure_;
}

int Course::TellVanished(bool removed) {
  if (removed) {
    job_.State.Status = Aborted;
    Remember(job_);
    throw Failure{kAborted, Subject(job_.Handle, job_.State) + " was removed by a client"};
  }
  if (LeftWithItsResults()) {
    job_.State.Status = Finished;
    job_.State.ResultFlags = 0;
  }
  const bool hasResults = options_.FetchResults && (job_.State.ResultFlags & kResultsAvailable) != 0;
  if (HasSucceeded(job_.State) && (delivered_ || !hasResults)) {
    Remember(job_);
    const int code = ExitCodeOf(job_.State, false);
    TellEnd(code, {});
    return code;
  }
  throw Failure{kLost,
                "the server has no " + Subject(job_.Handle, job_.State) + " any more" +
                    (hasResults ? ", and not all of its results are here" : ""),
                "it has been restarted, which ends jobs and forgets them; 'tlmctl resubmit @" + job_.Entry->Id +
                    "' starts it anew"};
}

void Course::TellEnd(int code, const std::vector<Reason>& reasons) {
  const Task& task = job_.State;
  if (settings_.Json) {
    return PrintJson({{"event", "end"}, {"job", JobJson(job_.Handle, task)}, {"removed", removed_}, {"code", code}});
  }
  if (!atLineStart_ && platform::IsTerminal(platform::StandardStream::Output)) std::cout << std::endl;
  std::string text = Subject(job_.Handle, task) + ": " + StatusText(task.Status);
  if (ExitCodeText(task) != kNothing) text += ", exit code " + ExitCodeText(task) + ", " + ElapsedText(task);
  if (!received_.empty()) text += ", files received: " + std::to_string(received_.size());
  Note(settings_, text);
  for (const Reason& reason : reasons) Note(settings_, reason.Text + (reason.Hint.empty() ? "" : "; ") + reason.Hint);
}

}  // namespace tlm::ctl
