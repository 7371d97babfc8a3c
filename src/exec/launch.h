// The processes of jobs: started, looked at, and forgotten once their end has been seen.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "store/confinement.h"
#include "store/job_manager_state.h"

namespace tlm {

// A launch that is under way: its process may run before its id has become its job's.
class LaunchUnderWay {
 public:
  explicit LaunchUnderWay(JobManagerState& state) REQUIRES(state.StateLock);
  LaunchUnderWay(const LaunchUnderWay&) = delete;
  LaunchUnderWay& operator=(const LaunchUnderWay&) = delete;
  ~LaunchUnderWay();

 private:
  JobManagerState& state_;
  std::uint64_t number_;
};

// Returns once the process, if a launch under way has just started it, is its job's. For a process that tells of
// itself.
void AwaitItsLaunch(JobManagerState& state, std::int32_t pid) EXCLUDES(state.StateLock);

// What it takes to start one command of the job in its directory, with its output behind what stands in OutFile. The
// tokens are those of the command, BinPath in front.
platform::LaunchRequest RequestOf(const JobManagerState& state, const Job& job, const ClientDirectory& directory,
                                  const std::vector<std::string>& tokens) REQUIRES(state.StateLock);

// Starts it, for as long as that takes. Null if it could not be started; then OutFile tells so.
std::shared_ptr<platform::Process> LaunchProcess(const platform::LaunchRequest& request);

// Null for a process whose end has been seen, and for one that nobody has started or attached here.
std::shared_ptr<platform::Process> ProcessHandle(JobManagerState& state, std::int32_t pid) REQUIRES(state.StateLock);

// Takes hold of a process that was not started here, so that no later process of its id can be taken for it.
void HoldProcess(JobManagerState& state, std::int32_t pid) REQUIRES(state.StateLock);

// True if the process has ended, or is not known; it is forgotten then. The exit code is platform::kUnknownExitCode
// until the end, and for a process that was not started here.
bool TestProcessEnd(JobManagerState& state, std::int32_t pid, std::uint32_t& exitCode) REQUIRES(state.StateLock);

void ApplyPriority(JobManagerState& state, std::int32_t pid, std::uint32_t priority) REQUIRES(state.StateLock);

// The name of the event by which the process is asked to end.
std::string StopEventName(std::int32_t pid);

}  // namespace tlm
