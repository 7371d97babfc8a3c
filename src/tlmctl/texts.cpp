#include "tlmctl/texts.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <map>

#include "platform/thread.h"
#include "tlmctl/jobs.h"

namespace tlm::ctl {

namespace {

template <std::size_t kCount>
std::string NameOf(const std::array<const char*, kCount>& names, std::uint32_t value) {
  return value < kCount && names[value] ? names[value] : std::to_string(value);
}

}  // namespace

std::string StatusText(std::uint32_t status) {
  static constexpr std::array<const char*, 8> kNames{"unknown",  "Queued",   "LaunchFailed", "Running",
                                                     "Starting", "Finished", "Aborted",      "Removed"};
  return NameOf(kNames, status);
}

std::string RunClassWord(std::uint32_t runClass) {
  return NameOf(std::array{"at-once", "queue", "distribute"}, runClass);
}

std::string RunClassText(std::uint32_t runClass) {
  return NameOf(std::array{"at once", "from the queue", "distributed"}, runClass);
}

std::string PriorityText(std::uint32_t priority) {
  return NameOf(std::array{"idle", "idle", "normal", "high", "realtime"}, priority);
}

std::uint32_t PriorityOf(const std::string& name) {
  static const std::map<std::string, std::uint32_t> kLevels{{"idle", 1}, {"normal", 2}, {"high", 3}, {"realtime", 4}};
  const auto level = kLevels.find(name);
  if (level != kLevels.end()) return level->second;
  throw Failure{kUsage, "there is no priority " + name, "it is idle, normal, high or realtime"};
}

std::string ResultFlagsText(std::uint32_t flags) {
  if ((flags & kResultsBeingSent) != 0) return "being sent";
  return (flags & kResultsAvailable) != 0 ? "available" : "none";
}

std::string LocalTimeText(std::int64_t time) {
  const std::time_t instant = time;
  const std::tm* parts = time == 0 ? nullptr : std::localtime(&instant);
  std::array<char, 64> text;
  return parts && std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", parts) > 0 ? text.data() : kNothing;
}

std::string MomentText(std::int64_t time) {
  constexpr std::size_t kDateLength = 10;
  std::string text = LocalTimeText(time);
  if (time == 0) return text;
  const std::string today = LocalTimeText(platform::SecondsSince1970()).substr(0, kDateLength);
  return text.starts_with(today) ? text.substr(kDateLength + 1) : text.substr(0, kDateLength);
}

std::string UtcTimeText(std::int64_t time) {
  const std::time_t instant = time;
  const std::tm* parts = std::gmtime(&instant);
  std::array<char, 64> text;
  return parts && std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", parts) > 0 ? text.data() : "";
}

std::string SizeText(std::uint64_t bytes) {
  constexpr double kStep = 1000.0;
  if (bytes < 1000) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  double size = static_cast<double>(bytes) / kStep;
  const char* unit = " kB";
  for (const char* larger : {" MB", " GB", " TB"}) {
    if (size < kStep) break;
    size /= kStep;
    unit = larger;
  }
  std::array<char, 32> number;
  std::snprintf(number.data(), number.size(), size < 10 ? "%.1f" : "%.0f", size);
  return number.data() + std::string(unit);
}

std::string DurationText(std::int64_t seconds) {
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 3600;
  std::array<char, 64> text;
  const auto write = [&](const char* format, auto... numbers) {
    std::snprintf(text.data(), text.size(), format, static_cast<long long>(numbers)...);
    return std::string(text.data());
  };
  if (seconds < kMinute) return write("%lld s", seconds);
  if (seconds < kHour) return write("%lld:%02lld", seconds / kMinute, seconds % kMinute);
  return write("%lld:%02lld:%02lld", seconds / kHour, seconds % kHour / kMinute, seconds % kMinute);
}

std::string MillisecondsText(double milliseconds) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%.2f ms", milliseconds);
  return text.data();
}

std::string ExitCodeText(const Task& task) {
  if (!HasEnded(task) || task.Started == 0) return kNothing;
  if (task.Status == LaunchFailed && task.ExitCode == 0) return kNothing;  // there was no process to end
  return EndedUnderNoServer(task) ? "unknown" : std::to_string(task.ExitCode);
}

std::string ElapsedText(const Task& task) {
  if (task.Started <= 0) return kNothing;
  if (EndedUnderNoServer(task)) return "unknown";
  if (HasEnded(task)) return DurationText(task.Elapsed);
  return DurationText(std::max<std::int64_t>(platform::SecondsSince1970() - task.Started, 0));
}

std::string ProgressBar(std::int32_t percent, int width) {
  constexpr int kWhole = 100;
  const int filled = static_cast<int>(std::int64_t{std::clamp(percent, 0, kWhole)} * width / kWhole);
  std::array<char, 32> number;
  std::snprintf(number.data(), number.size(), "] %3d %%", percent);
  return '[' + std::string(static_cast<std::size_t>(filled), '#') +
         std::string(static_cast<std::size_t>(width - filled), '.') + number.data();
}

}  // namespace tlm::ctl
