// How tlmctl ends.
#pragma once

#include <string>

namespace tlm::ctl {

// For scripts: these numbers never change. A sub-command that runs or awaits a job gives the exit code of the job's
// program instead, if that has run to its end.
enum ExitCode : int {
  kGood = 0,
  kUsage = 64,
  kUnreachable = 69,
  kLost = 75,
  kRefused = 77,
  kAborted = 120,
  kLaunchFailed = 121,
  kUnknown = 122,
  kTimedOut = 124,
  kInterrupted = 130,
};

struct ExitCodeMeaning {
  ExitCode Code;
  const char* Name;  // as programs read it
  const char* Text;
};

inline constexpr ExitCodeMeaning kExitCodes[] = {
    {kGood, "good", "good"},
    {kUsage, "usage", "wrong usage"},
    {kUnreachable, "unreachable", "the server cannot be reached"},
    {kLost, "lost", "contact was lost and could not be made again; what became of the job is not known"},
    {kRefused, "refused",
     "the server answered no, or a person did: an unknown job, one of somebody else, no room, also for output"},
    {kAborted, "aborted", "the job was removed, or its program did not report success"},
    {kLaunchFailed, "launch-failed", "the job's program could not be started"},
    {kUnknown, "unknown", "the job ended on another server, which does not pass on the exit code of its program"},
    {kTimedOut, "timed-out", "the time that was given has passed"},
    {kInterrupted, "interrupted", "ended by a key"},
};

// Stands beside them.
inline constexpr char kProgramsExitCode[] = "of the job's program, from run, wait, watch, submit --watch and resubmit";

// What ends a sub-command before its end. The texts are for the user and begin in lower case: what happened, and what
// can be done about it, which may be empty.
struct Failure {
  ExitCode Code;
  std::string Text;
  std::string Hint = {};
};

}  // namespace tlm::ctl
