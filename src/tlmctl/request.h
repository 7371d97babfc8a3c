// What a user asks to be run, and what of it the server is told.
#pragma once

#include <string>
#include <vector>

#include "jm/task.h"
#include "tlmctl/client_files.h"
#include "tlmctl/program.h"

namespace tlm::ctl {

struct Request {
  std::vector<std::string> Words;
  std::string Command;  // instead of Words
  std::string Deck;
  std::vector<std::string> Inputs;
  std::string Directory;
  std::string Stem;
  std::vector<std::string> OtherStems;
  std::string Name;
  std::string Note;
  std::string TaskKey;
  std::string After;  // a job
  std::string Priority;
  bool Queue = false;
  bool Distribute = false;
  bool CompleteOnFailure = false;
  bool InPlace = false;
  bool SendAll = false;
  bool DryRun = false;
};

struct Plan {
  Submission Job;                  // without the predecessor's handle and the note's id
  std::string Directory;           // the job's on this machine, with a separator at its end
  std::vector<ClientFile> Inputs;  // what has to be there before the job; none for one that runs in place
};

// The options of a command that makes a job.
void AddRequestOptions(Program& program, CLI::App& command, Request& request);

// Throws Failure if the request makes no sense, or names a file that is not there or cannot travel.
Plan MakePlan(const Request& request);

}  // namespace tlm::ctl
