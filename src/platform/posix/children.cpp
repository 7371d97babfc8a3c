#include "platform/posix/children.h"

#include <chrono>
#include <memory>
#include <sys/wait.h>

namespace tlm::platform {

namespace {

constexpr std::chrono::seconds kLaunchPatience{1};

}  // namespace

std::shared_lock<std::shared_timed_mutex> Children::Enter() {
  std::shared_lock pass(door_);
  if (closed_) pass.unlock();
  return pass;
}

void Children::Add(pid_t id, bool leadsGroup) {
  const std::lock_guard lock(mutex_);
  leadsGroup_[id] = leadsGroup;
  if (closed_) kill(id, SIGKILL);  // it was born in a launch that had hung too long
}

int Children::Wait(pid_t id, int descriptor, siginfo_t& end) {
  const std::lock_guard lock(mutex_);
  const int result = waitid(P_PIDFD, static_cast<id_t>(descriptor), &end, WEXITED | WNOHANG);
  if (result == 0 && end.si_pid != 0) leadsGroup_.erase(id);
  return result;
}

std::vector<std::int32_t> Children::TerminateAll() {
  // A launch that hangs, in a file system that does not answer, say, cannot hold up the end for ever.
  const std::unique_lock door(door_, kLaunchPatience);
  const std::lock_guard lock(mutex_);
  closed_ = true;
  std::vector<std::int32_t> ids;
  for (const auto& [id, leadsGroup] : leadsGroup_) {
    if (leadsGroup) kill(-id, SIGKILL);
    kill(id, SIGKILL);  // also a leader that has left its group
    ids.push_back(id);
  }
  return ids;
}

Children& TheChildren() {
  // Never destroyed: other threads may still look while the process ends.
  static Children& children = *std::make_unique<Children>().release();
  return children;
}

}  // namespace tlm::platform
