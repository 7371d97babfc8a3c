// Bringing results here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tlmctl/console.h"
#include "tlmctl/jobs.h"
#include "tlmctl/link.h"

namespace tlm::ctl {

struct ReceivedFile {
  std::string Path;
  std::uint64_t Size = 0;
};

// True if a result may be written to the path: right in the directory, which ends with a separator, and under a name
// that is not hidden. A server that names another one is not to be trusted.
bool MayReceive(const std::string& path, const std::string& directory);

// Fetches what is new or has changed, checks it against its manifest, asks again for what is short, and confirms the
// rest; AwaitArrival makes sure of that. What is older than the job, as inputs and results of former jobs are, takes
// the place of no file that is here. The job's owner may call it. Nothing if there is none. Throws Failure if files do
// not arrive whole, or are not to be written here. The last chance to look at the job comes before the confirmation:
// with that, the server lets go one that has ended.
std::vector<ReceivedFile> FetchResults(
    QorJMClient& client, const Settings& settings, const KnownJob& job, const std::string& directory,
    const std::function<void()>& lookBeforeConfirming = [] {});

Json ToJson(const std::vector<ReceivedFile>& files);

// Tells of each file, on standard output or as a document.
void PrintReceived(const Settings& settings, std::uint64_t handle, const std::vector<ReceivedFile>& files);

}  // namespace tlm::ctl
