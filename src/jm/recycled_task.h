// A Task that an earlier call on this thread has used: its texts need no new memory.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "jm/task.h"

namespace tlm {

// Holds what was left in it, for who overwrites all of it.
class RecycledTask {
 public:
  RecycledTask() {
    if (Spare().empty()) {
      task_ = std::make_unique<Task>();
    } else {
      task_ = std::move(Spare().back());
      Spare().pop_back();
    }
  }
  ~RecycledTask() {
    if (Spare().size() < Spare().capacity() && !IsLarge(*task_)) Spare().push_back(std::move(task_));
  }
  RecycledTask(const RecycledTask&) = delete;
  RecycledTask& operator=(const RecycledTask&) = delete;
  operator Task&() const { return *task_; }

 private:
  static std::vector<std::unique_ptr<Task>>& Spare() {
    constexpr std::size_t kMost = 16;
    thread_local std::vector<std::unique_ptr<Task>> spare = [] {
      std::vector<std::unique_ptr<Task>> none;
      none.reserve(kMost);
      return none;
    }();
    return spare;
  }
  static bool IsLarge(const Task& task) {
    constexpr std::size_t kLarge = 4096;  // bytes of a text
    bool isLarge = false;
    Task::VisitFields(task, [&isLarge](const auto& field) {
      if constexpr (std::is_same_v<decltype(field), const std::string&>) isLarge |= field.capacity() > kLarge;
    });
    return isLarge;
  }

  std::unique_ptr<Task> task_;
};

inline ORpcIO& Encode(ORpcIO& io, const RecycledTask& held) { return Encode(io, static_cast<const Task&>(held)); }
inline void Decode(ORpcIO& io, const RecycledTask& held) { Decode(io, static_cast<Task&>(held)); }

}  // namespace tlm
