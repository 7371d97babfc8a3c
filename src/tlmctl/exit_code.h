// How tlmctl ends.
#pragma once

#include <string>

namespace tlm::ctl {

enum class ExitCode {
  Good = 0,
  JobFailed = 1,
  Usage = 2,
  NoServer = 3,
  Refused = 4,
};

struct ExitCodeMeaning {
  ExitCode Code;
  const char* Text;
};

inline constexpr ExitCodeMeaning kExitCodes[] = {
    {ExitCode::Good, "good"},
    {ExitCode::JobFailed, "the job that was followed ended without success"},
    {ExitCode::Usage, "wrong usage"},
    {ExitCode::NoServer, "the server cannot be reached, or the connection was lost"},
    {ExitCode::Refused, "the server answered no: an unknown job, or one that belongs to somebody else"},
};

// What ends a sub-command before its end. The text is for the user and begins in lower case.
struct Failure {
  ExitCode Code;
  std::string Text;
};

}  // namespace tlm::ctl
