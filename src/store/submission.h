// How a job enters the table.
#pragma once

#include <string>

#include "store/confinement.h"
#include "store/job_manager_state.h"

namespace tlm {

// Makes the job that a client asks for, and the server-side paths on which all later steps depend. Null if the
// predecessor is not in the table. A predecessor that ended badly gives the new job its own Status. The file that an
// earlier run left under the output file's name is deleted. The session must have an install path.
Job* AddSubmittedJob(JobManagerState& state, const Session& session, const Submission& submission)
    REQUIRES(state.StateLock);

// The directory in which a job with this WorkDir runs. A client that mapped its directory gets the server's; one that
// names a directory that the server can reach itself gets that.
const std::string& ServerDirectory(const Session& session, const std::string& workDir);

// The job's OutFile, by the path by which its directory is reached.
std::string OutFileIn(const ClientDirectory& directory, const Job& job);

// Deletes what an earlier run left under the output file's name. A failure is told on standard error, and nothing more.
void DeleteOutFile(const ClientDirectory& directory, const Job& job);

struct Attachment {
  Job& Record;
  bool IsStranger;  // no job had this process: the job was made for it, holds a run slot, and has to be watched
};

// Binds a process that has announced itself, and the session on which it speaks, to its job.
Attachment AttachProcess(JobManagerState& state, Session& session, std::int32_t pid, const std::string& command,
                         const std::string& directory) REQUIRES(state.StateLock);

// The name of a program as a command line gives it: without directory, and up to its first full stop.
std::string CommandBaseName(const std::string& command);

}  // namespace tlm
