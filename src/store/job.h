// All that the server knows of a job.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "jm/peer.h"
#include "jm/task.h"

namespace tlm {

// A reference to a job, or 0 for none: its handle, which is never used twice. It may be stale: JobTable::Find tells.
using JobRef = std::uint64_t;

// Values of Job::Killed.
inline constexpr std::int32_t kTerminated = -1;
inline constexpr std::int32_t kEndedOnStopEvent = -2;

// What a session's jobs have in common, from the place where its product is installed.
struct Installation {
  std::string Env;      // one further entry for the child's environment
  std::string BinPath;  // put in front of each command
};

// Guarded by StateLock. Whoever changes a field marked with an asterisk calls JobTable::Changed before anything else
// looks at the table. Of the Task's fields ClientPort, Status, RunClass and ResultFlags are such.
struct Job : Task {
  std::int32_t Dependents = 0;  // * jobs that name this one as Predecessor
  std::int32_t Failures = 0;    // failed contacts with the peer that runs the job
  std::int32_t Killed = 0;      // * kTerminated or kEndedOnStopEvent once the job manager has stopped the process
  bool SuccessFlag = false;     // the process reported success
  bool Retry = false;           // the process asked to be run again; shown, and never acted on
  std::int32_t Pid = 0;         // * of the job's last process until its end is settled, 0 when none
  bool Lite = false;            // * its process submits jobs itself: it does not count as load
  bool RemoveWhenDone = false;  // * may be retired whatever its Status
  std::uint64_t RemoteJob = 0;  // its handle on the peer that runs it, 0 if it runs here
  std::shared_ptr<Peer> RemoteServer;  // that peer; also while the job is on its way there
  bool ConfirmedToPeer = false;        // the peer was told that all results are here, and has not been heard of since
  JobRef CreatorJob = 0;               // the job whose process submitted it
  std::uint64_t Handle = 0;            // its identity towards clients
  std::string TempDir;                 // where it runs and its results lie; JobTable::SetDirectory
  std::string OutFile;                 // its captured output
  std::shared_ptr<const Installation> Installed;      // as it was when the job was submitted; never null
  std::map<std::string, std::uint32_t> SentFileSize;  // by name of a result file, as last sent to the client
  std::map<std::string, std::int64_t> SentFileDate;
};

// For diagnostics.
std::string DescribeJob(const Job& job);

}  // namespace tlm
