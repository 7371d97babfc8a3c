#include "platform/environment.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace tlm::platform {
namespace {

// A table of our own, since the C library's environment cannot be read while another thread changes it.
class EnvironmentTable {
 public:
  EnvironmentTable() {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      const std::string_view text = *entry;
      const std::size_t equals = text.find('=');
      if (equals == std::string_view::npos || equals == 0) continue;
      const std::string name(text.substr(0, equals));
      // Of two entries of one name, the C library gives the first.
      if (Find(name) == entries_.end()) entries_.emplace_back(name, text.substr(equals + 1));
    }
  }

  std::optional<std::string> Get(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto entry = Find(name);
    if (entry == entries_.end()) return std::nullopt;
    return entry->second;
  }

  void Set(const std::string& name, const std::string& value) {
    if (name.empty() || name.find('=') != std::string::npos) return;
    const std::lock_guard lock(mutex_);
    const auto entry = Find(name);
    if (value.empty()) {
      if (entry != entries_.end()) entries_.erase(entry);
    } else if (entry != entries_.end()) {
      entry->second = value;
    } else {
      entries_.emplace_back(name, value);
    }
  }

  std::vector<std::string> Entries() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    lines.reserve(entries_.size());
    for (const auto& [name, value] : entries_) lines.emplace_back(name).append("=").append(value);
    return lines;
  }

 private:
  using Entry = std::pair<std::string, std::string>;

  std::vector<Entry>::iterator Find(const std::string& name) {
    return std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.first == name; });
  }

  std::mutex mutex_;
  std::vector<Entry> entries_;  // guarded by mutex_
};

EnvironmentTable& Table() {
  // Never destroyed: other threads may still look while the process ends.
  static EnvironmentTable& table = *std::make_unique<EnvironmentTable>().release();
  return table;
}

}  // namespace

std::optional<std::string> GetVariable(const std::string& name) { return Table().Get(name); }

void SetVariable(const std::string& name, const std::string& value) { Table().Set(name, value); }

std::vector<std::string> EnvironmentEntries() { return Table().Entries(); }

}  // namespace tlm::platform
