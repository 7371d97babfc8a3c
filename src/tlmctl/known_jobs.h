// Jobs of a server together with what the ledger tells of them.
#pragma once

#include <vector>

#include "tlmctl/jobs.h"

namespace tlm::ctl {

// Those of the handles that the server has, as they stand. An end that is seen so is written down.
std::vector<KnownJob> FetchKnownJobs(QorJMClient& client, const HandleList& handles);
// All that it has, in the order of their submission.
std::vector<KnownJob> FetchAllKnownJobs(QorJMClient& client);

// False if another job has the handle by now, after a restart of the server.
bool IsSameJob(const Task& one, const Task& other);
Failure Forgotten(const KnownJob& job);

// "job 4 plate (Running, 35 %)".
std::string SubjectAndState(const KnownJob& job);
// The jobs so, separated by commas; of many the first few and the number of the others.
std::string ListInWords(const std::vector<KnownJob>& jobs);

}  // namespace tlm::ctl
