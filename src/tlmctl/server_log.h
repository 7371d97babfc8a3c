// The job log of a server on this machine, see store/job_log.h: also jobs of other users, and those before a restart.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tlmctl/outcomes.h"

namespace tlm::ctl {

struct LoggedJob : PastJob {  // an Outcome may also be "lost": the server ended before the job
  std::uint64_t Port = 0;     // of the server
  std::string Client;
  std::string TaskKey;
  std::string Note;
  std::string Peer;  // that has run it, empty if none
  std::int64_t Started = 0;
  std::optional<std::uint64_t> Elapsed;  // seconds of its last process
};

struct ServerLog {
  std::vector<LoggedJob> Jobs;  // in the order of submission
  std::size_t Unreadable = 0;   // lines that are torn, or none of such a log
  std::uint64_t Missing = 0;    // lines that the server could not write
};

// The file, behind the one with ".1" behind its name that it has followed. Throws Failure if it cannot be read.
ServerLog ReadServerLog(const std::string& path);

Json ToJson(const LoggedJob& job);

}  // namespace tlm::ctl
