// Results on their way to the client that owns the job: what it has not got yet, and what it says of what it got.
#pragma once

#include "jm/file_transfer.h"
#include "jm/lists.h"
#include "store/job_manager_state.h"

namespace tlm {

// Adds the new and changed result files to the list, the manifest last; they count as sent from now on. False, and the
// list as it was, if the session does not own the job, if there is nothing to send, or if the client has still to
// confirm what was sent before.
bool RequestResults(JobManagerState& state, const Session& session, JobRef ref, FileTransferList& files)
    REQUIRES(state.StateLock);

// Nothing of what was sent has arrived: all of it is offered again. False if the session does not own the job.
bool ResultsNotSent(JobManagerState& state, const Session& session, JobRef ref) REQUIRES(state.StateLock);

// All has arrived but these files, which are offered again. Only their names count, not their directories.
void ResultsIncomplete(JobManagerState& state, const Session& session, JobRef ref, const StringList& names)
    REQUIRES(state.StateLock);

// All has arrived. A finished job of which nothing is left to fetch may leave the table.
void ResultsReceived(JobManagerState& state, const Session& session, JobRef ref) REQUIRES(state.StateLock);

}  // namespace tlm
