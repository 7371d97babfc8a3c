#include "util/mlockfile.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/host.h"
#include "platform/thread.h"

namespace tlm {

namespace {

using platform::File;
using platform::FileLock;

constexpr int kWaitingTries = 10;
constexpr std::chrono::milliseconds kTryInterval(1000);
constexpr std::size_t kLongestInfoLine = 254;
constexpr std::size_t kInfoLines = 3;
// Each time round some other holder came and went; a file that never stays the same counts as locked.
constexpr int kMostReplacements = 10000;

enum class Attempt { Held, Refused, NoFile };

// A holder removes its file when it goes, so what was opened may be gone by the time it is locked, with another file in
// its place that somebody else locks. Only a lock on the file that the path names is worth anything.
Attempt TryOnce(const std::string& lockPath, std::optional<FileLock>& lock) {
  for (int replacements = 0; replacements < kMostReplacements; ++replacements) {
    lock = FileLock::Open(lockPath);
    if (!lock) return Attempt::NoFile;
    const bool locked = lock->TryLock();
    if (!lock->IsCurrent()) continue;
    if (locked) return Attempt::Held;
    break;
  }
  lock.reset();
  return Attempt::Refused;
}

// Takes the next line off the text, at most so long that it would still fit; empty if there is none.
std::optional<std::string_view> TakeLine(std::string_view& text) {
  if (text.empty()) return std::nullopt;
  const std::size_t lineEnd = text.find('\n');
  const std::size_t length = std::min({text.size(), kLongestInfoLine, lineEnd == text.npos ? lineEnd : lineEnd + 1});
  const std::string_view line = text.substr(0, length);
  text.remove_prefix(length);
  return line;
}

std::string WithoutLineEnd(std::string_view line) { return std::string(line.substr(0, line.find_first_of("\r\n"))); }

}  // namespace

bool MLockFile::Lock(const std::string& path, bool wait) {
  Unlock();
  lockPath_ = path + ".lck";
  const std::string infoPath = path + ".lci";
  if (!TakeLock(wait ? kWaitingTries : 1)) {
    ReadHolder(infoPath);
    return false;
  }
  WriteHolder(infoPath);
  return true;
}

bool MLockFile::TakeLock(int tries) {
  while (TryOnce(lockPath_, lock_) == Attempt::Refused) {
    if (--tries == 0) return false;
    platform::Sleep(kTryInterval);
  }
  return true;
}

void MLockFile::Unlock() {
  if (!infoPath_.empty()) platform::RemoveFile(infoPath_);
  infoPath_.clear();
  if (!lock_) return;
  // Removed while still locked: afterwards it might be the next holder's file.
  if (lock_->IsCurrent()) platform::RemoveFile(lockPath_);
  lock_.reset();
}

void MLockFile::WriteHolder(const std::string& infoPath) {
  std::optional<File> info = File::Open(infoPath, File::Mode::Truncate, File::Links::Refuse);
  if (!info) return;
  infoPath_ = infoPath;
  const std::string time = std::to_string(static_cast<std::int32_t>(platform::SecondsSince1970()));
  // A text that could not be written only leaves people uninformed.
  (void)info->Write(time + '\n' + platform::HostName() + '\n' + platform::UserName() + '\n');
}

void MLockFile::ReadHolder(const std::string& infoPath) {
  std::optional<File> info = File::Open(infoPath, File::Mode::Read);
  if (!info) return;
  char content[kInfoLines * kLongestInfoLine];
  std::string_view text(content, info->Read(content, sizeof content).value_or(0));
  if (const auto line = TakeLine(text)) {
    holderTime_ = static_cast<std::int32_t>(std::strtoll(std::string(*line).c_str(), nullptr, 10));
  }
  if (const auto line = TakeLine(text)) holderHost_ = WithoutLineEnd(*line);
  if (const auto line = TakeLine(text)) holderUser_ = WithoutLineEnd(*line);
}

}  // namespace tlm
