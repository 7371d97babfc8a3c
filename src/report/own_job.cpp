#include "report/own_job.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "libtsenv/ini_file.h"
#include "libtsenv/product_environment.h"
#include "libtsenv/runtime_identity.h"
#include "platform/environment.h"
#include "platform/host.h"
#include "platform/process_tree.h"

namespace tlm::report {
namespace {

using platform::LookUpProcess, platform::ProcessEntry;

constexpr std::array<std::string_view, 3> kJobManagers = {"tlmjm", "ksbjm", "vrkjm"};
constexpr int kLongestAncestry = 1000;  // entries are read one by one, while processes come and go

bool IsJobManager(const ProcessEntry& process) {
  return std::find(kJobManagers.begin(), kJobManagers.end(), process.Name) != kJobManagers.end();
}

// The job, if the process is the one that a job manager has started for it.
std::optional<OwnJob> JobOf(std::int32_t id, const std::optional<ProcessEntry>& process) {
  const std::optional<ProcessEntry> parent = process ? LookUpProcess(process->Parent) : std::nullopt;
  return parent && IsJobManager(*parent) ? std::optional(OwnJob{id, process->Parent}) : std::nullopt;
}

std::optional<OwnJob> ChildOfJobManager() {
  std::int32_t id = platform::ProcessId();
  std::optional<ProcessEntry> process = LookUpProcess(id);
  for (int i = 0; process && i < kLongestAncestry; ++i) {
    if (const std::optional<OwnJob> job = JobOf(id, process)) return job;
    id = process->Parent;
    process = LookUpProcess(id);
  }
  return std::nullopt;
}

}  // namespace

std::optional<OwnJob> FindOwnJob() {
  if (const std::optional<OwnJob> job = ChildOfJobManager()) return job;
  // A job's process leads a group, so what it has left behind still knows it. If it has ended, so has the job.
  const std::int32_t leader = platform::GroupLeader();
  return JobOf(leader, LookUpProcess(leader));
}

void TakeSettingsOfJobManager(const OwnJob& job) {
  DetectClient(platform::GetVariable("TSJM_CLIENT").value_or("") + "jm");
  const std::string& port = Identity().RUNTIME_JM_ENVIRONMENT_PORT;
  if (ProductValue(port.c_str())) return;
  // All that a job does not share with its job manager is the file beside the executable.
  const std::string executable = platform::ExecutablePathOf(job.JobManager);
  if (const auto value = IniVariable(executable, port)) platform::SetVariable(port, *value);
}

std::string StopEventName(const OwnJob& job) {
  return Identity().RUNTIME_JM_VERSION + '_' + std::to_string(job.Process);
}

}  // namespace tlm::report
