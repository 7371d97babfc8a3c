// The server's directories for those of its clients.
#pragma once

#include <string>

#include "store/job_manager_state.h"

namespace tlm {

// The sweep: retires jobs, removes the directories that have expired and are no job's, of all clients, with their
// records, and takes what the table holds for the session's host into its DirectoryMap. Reads the list of peers as
// well. Looks at every directory of the table. One that is empty stays if the
// session's client wants it, or if another session has it mapped.
void ReloadDirectoryTable(JobManagerState& state, Session& session, const std::string* wantedKey = nullptr)
    REQUIRES(state.StateLock);

// The server's directory for this one of the client: the one that it had before, else a new one. It exists afterwards,
// if the root can be written to. A name that the table cannot hold is served all the same, for as long as the session
// lasts.
std::string MapClientDirectory(JobManagerState& state, Session& session, const std::string& key)
    REQUIRES(state.StateLock);

}  // namespace tlm
