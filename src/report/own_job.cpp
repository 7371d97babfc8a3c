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
constexpr std::array<const char*, 2> kJobVariables = {"TS_ENTERPRISE_ENV", "TS_ENTERPRISE_ENV_PARENT_ID"};
constexpr int kLongestAncestry = 1000;  // entries are read one by one, while processes come and go

bool IsJobManager(const ProcessEntry& process) {
  return std::any_of(kJobManagers.begin(), kJobManagers.end(),
                     [&](std::string_view name) { return process.Name.find(name) != std::string::npos; });
}

std::optional<OwnJob> ChildOfJobManager() {
  std::int32_t id = platform::ProcessId();
  std::optional<ProcessEntry> process = LookUpProcess(id);
  for (int i = 0; process && i < kLongestAncestry; ++i) {
    const std::optional<ProcessEntry> parent = LookUpProcess(process->Parent);
    if (parent && IsJobManager(*parent)) return OwnJob{id, process->Parent};
    id = process->Parent;
    process = parent;
  }
  return std::nullopt;
}

// A job's process leads a group, so what it has left behind still knows it. If it has ended, so has the job.
std::optional<OwnJob> LeaderOfJob() {
  if (std::none_of(kJobVariables.begin(), kJobVariables.end(), platform::GetVariable)) return std::nullopt;
  const std::int32_t leader = platform::GroupLeader();
  const std::optional<ProcessEntry> process = LookUpProcess(leader);
  return process && !IsJobManager(*process) ? std::optional(OwnJob{leader}) : std::nullopt;
}

}  // namespace

std::optional<OwnJob> FindOwnJob() {
  const std::optional<OwnJob> child = ChildOfJobManager();
  return child ? child : LeaderOfJob();
}

void TakeSettingsOfJobManager(const OwnJob& job) {
  DetectClient(platform::GetVariable("TSJM_CLIENT").value_or("") + "jm");
  const std::string& port = Identity().RUNTIME_JM_ENVIRONMENT_PORT;
  if (ProductValue(port.c_str()) || job.JobManager == 0) return;
  // All that a job does not share with its job manager is the file beside the executable.
  const std::string executable = platform::ExecutablePathOf(job.JobManager);
  if (const auto value = IniVariable(executable, port)) platform::SetVariable(port, *value);
}

std::string StopEventName(const OwnJob& job) {
  return Identity().RUNTIME_JM_VERSION + '_' + std::to_string(job.Process);
}

}  // namespace tlm::report
