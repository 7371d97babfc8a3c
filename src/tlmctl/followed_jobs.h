// Jobs on their way to their ends, also through losses of the connection.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tlmctl/known_jobs.h"
#include "tlmctl/link.h"

namespace tlm::ctl {

struct FollowedJob {
  KnownJob Job;              // as it was last seen
  int SeenOn = 0;            // the number of the connection
  bool EndedBefore = false;  // before anybody watched
  bool IsGone = false;       // from the server, before its end was seen
  bool WasRemoved = false;   // by a client

  bool IsOver() const { return IsGone || HasEnded(Job.State); }
  // How a sub-command ends that has awaited this one. Of a job that has gone it is what the ledger tells.
  int ExitCode() const;
  bool IsEndUnknown() const { return ExitCode() == kLost; }
};

// "job 4 plate: Finished, exit code 0, 12 s".
std::string CourseText(const FollowedJob& job);

class FollowedJobs {
 public:
  // Those that the words name, also if they have left the server with their ends in the ledger; all of the server's if
  // there are none, also those that come later. Throws Failure if a word names none.
  FollowedJobs(const Settings& settings, const std::vector<std::string>& words);

  // Asks how they stand; writes down their ends. Throws Failure once contact is lost for good, or if the server has
  // been restarted and has forgotten one.
  void Poll();
  // Runs before a word about a loss of the connection is said.
  void OnLoss(std::function<void()> prepare) { link_.OnLoss(std::move(prepare)); }

  const std::vector<FollowedJob>& Jobs() const { return jobs_; }
  bool AreOver() const;
  // Of the first that failed, in the order of the words; without words, of those that had not ended before, and for
  // which it is known.
  int ExitCode() const;

 private:
  void AddNew(QorJMClient& client);
  void Look(QorJMClient& client, FollowedJob& job);
  static void Settle(QorJMClient& client, FollowedJob& job);

  const bool all_;
  bool polled_ = false;
  int connections_ = 0;
  Link link_;
  std::vector<FollowedJob> jobs_;
};

}  // namespace tlm::ctl
