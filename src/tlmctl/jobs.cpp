#include "tlmctl/jobs.h"

namespace tlm::ctl {

std::optional<Task> FetchJob(QorJMClient& client, std::uint64_t handle) {
  std::optional<Task> noticed;
  while (true) {
    Task task;  // no job of a server has the status that this one has
    client.GetJob(handle, task);
    if (task.Status == 0) {
      if (noticed) noticed->Status = Removed;
      return noticed;
    }
    if (task.Status != kProgressNotice) return task;
    noticed = std::move(task);  // some job has reported something; the next answer tells the state
  }
}

Task FetchKnownJob(QorJMClient& client, std::uint64_t handle) {
  std::optional<Task> task = FetchJob(client, handle);
  if (!task) throw UnknownJob(handle);
  return *std::move(task);
}

Failure UnknownJob(std::uint64_t handle) {
  return {ExitCode::Refused, "the server has no job " + std::to_string(handle)};
}

bool HasEnded(const Task& task) { return task.Status != Queued && task.Status != Starting && task.Status != Running; }

bool HasSucceeded(const Task& task) { return task.Status == Finished || task.Status == Removed; }

void BecomeOwner(QorJMClient& client, const ServerOptions& server, std::uint64_t handle) {
  if (client.TakeOwnership(handle)) return;
  const Task task = FetchKnownJob(client, handle);
  const std::string job = "job " + std::to_string(handle);
  if (task.ClientHost != server.ClientHost) {
    throw Failure{ExitCode::Refused, job + " was submitted from \"" + task.ClientHost +
                                         "\", and is for that host alone; this one is \"" + server.ClientHost +
                                         "\" (see --client-host)"};
  }
  throw Failure{ExitCode::Refused, job + " belongs to another client, at port " + std::to_string(task.ClientPort) +
                                       "; it can be had once that one has disconnected"};
}

}  // namespace tlm::ctl
