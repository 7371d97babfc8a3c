// Which of a client's files are here already, in the directories that stand for its own.
#pragma once

#include <cstdint>
#include <string>

#include "jm/lists.h"
#include "store/job_manager_state.h"

namespace tlm {

// False for a path whose directory, with the separator at its end, is not mapped for the session.
bool ClientFileExists(JobManagerState& state, Session& session, const std::string& path) REQUIRES(state.StateLock);
bool ClientFileMatches(JobManagerState& state, Session& session, const std::string& path, std::uint32_t size)
    REQUIRES(state.StateLock);

// Of entries "size:date:path" those whose file is not here with that size, each as "size found:0:path". An entry that
// ends with its date is its own path. One without a date, with a size of 0 or none, or with a number beyond 32 (size)
// or 64 bits (date), is passed over. Throws kMarshalError if an answer would be longer than a string may be.
StringList MissingClientFiles(JobManagerState& state, Session& session, const StringList& files)
    REQUIRES(state.StateLock);

}  // namespace tlm
