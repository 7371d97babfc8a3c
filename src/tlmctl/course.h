// Following a job of this client to its end, with its output and its results.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>

#include "tlmctl/download.h"
#include "tlmctl/job_output.h"
#include "tlmctl/jobs.h"
#include "tlmctl/link.h"
#include "tlmctl/ownership.h"
#include "tlmctl/reason.h"
#include "tlmctl/status_line.h"

namespace tlm::ctl {

enum class OnInterrupt { Ask, Leave, Remove, Continue };

struct CourseOptions {
  OnInterrupt Interrupted = OnInterrupt::Ask;
  bool ShowOutput = true;
  bool FetchResults = true;  // to the job's directory on this machine
  bool Keep = false;         // the job on the server, when all is over
};

// Shows how the job goes: its output on standard output, its state on standard error, in place on a terminal. Gives the
// exit code of the sub-command. The link has to be greeted so that this client owns the job after a loss as well.
class Course {
 public:
  Course(Link& link, const Settings& settings, const LedgerEntry& entry, const CourseOptions& options);
  int Follow();

 private:
  bool Look();
  void ShowState();
  void PassOutput(QorJMClient& client, bool isLast);
  void PassResults(QorJMClient& client, bool isLast);
  void TellResults(const std::vector<ReceivedFile>& files);
  OnInterrupt AskWhatBecomes() const;
  bool LeavesOnInterrupt();
  std::string WordsOfLeaving() const;
  int Leave() const;
  int End();
  bool LeftWithItsResults() const;
  int TellVanished(bool removed);
  void TellEnd(int code, const std::vector<Reason>& reasons);

  Link& link_;
  const Settings& settings_;
  KnownJob job_;
  const CourseOptions options_;
  StatusLine line_;
  Ownership ownership_;
  OutputReader output_;
  bool atLineStart_ = true;  // of what was shown last
  bool vanished_ = false;
  bool removed_ = false;    // by a client
  bool delivered_ = false;  // the results that stood when it had ended are here
  int deliveredOn_ = 0;     // number of the connection on which results came before its end
  std::optional<Failure> fetchFailure_;
  std::chrono::steady_clock::time_point nextFetch_;
  std::set<std::string> received_;  // paths
  std::string shown_;               // the state that was told last
};

}  // namespace tlm::ctl
