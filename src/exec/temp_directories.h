// The root under which the server's directories lie, and how they go away by age.
#pragma once

#include <cstdint>
#include <string>

#include "store/job_manager_state.h"

namespace tlm {

// The product's temporary directory, else what TMPDIR, TMP or TEMP of the process environment says, else the system's.
// An empty text is no value. Unless TMP gave it, TMP is taken out of the environment, so that no child inherits it.
std::string DeriveTempRoot();

// Makes TempRoot, for this user alone, if it does not exist.
void EnsureTempRoot(const JobManagerState& state) REQUIRES(state.StateLock);

// Deletes the files that were written longer ago than TempExpiry, and then the directory itself. True if that has gone:
// it stays while it holds younger files or any directory. What a link of this name leads to is not touched.
bool RemoveExpiredDirectory(const JobManagerState& state, const std::string& directory) REQUIRES(state.StateLock);

// Goes back to the derived root and takes the directories away that the table there lists, but what holds other
// directories or files of this second, with the table and the list of peers. TempExpiry is 0 afterwards.
void PurgeTempRoot(JobManagerState& state) REQUIRES(state.StateLock);

// Moves the root and sets its expiry, in seconds. A root other than the present one has to be a writable directory, no
// job may run, and what the table under the derived root lists goes. False, and nothing changed, if that cannot be.
bool SetTempRoot(JobManagerState& state, const std::string& directory, std::uint32_t expiry) REQUIRES(state.StateLock);

}  // namespace tlm
