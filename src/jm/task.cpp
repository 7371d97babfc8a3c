#include "jm/task.h"

#include <array>
#include <chrono>
#include <cstdio>

namespace tlm {

namespace {

std::string Entry(const char* label, const std::string& value) { return "(" + std::string(label) + "=" + value + "),"; }

std::string Stamp(std::uint64_t value) {
  return TimeText(static_cast<std::int64_t>(value)) + "/" + std::to_string(value);
}

std::string LowWord(std::uint64_t value) { return std::to_string(static_cast<std::uint32_t>(value)); }

}  // namespace

std::string TimeText(std::int64_t time) {
  // Years that the calendar can count; asctime writes them with at least four digits.
  constexpr std::int64_t kSecondsOfYear = 31'556'952;
  constexpr std::int64_t kLastYear = 32767;
  if (time < -kLastYear * kSecondsOfYear || time > (kLastYear - 1970) * kSecondsOfYear) return "-1";

  using namespace std::chrono;
  const sys_seconds instant{seconds{time}};
  const sys_days day = floor<days>(instant);
  const year_month_day date{day};
  const hh_mm_ss clock{instant - day};
  static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char text[64];
  std::snprintf(text, sizeof text, "%s %s %2u %02d:%02d:%02d %d", kDays[weekday{day}.c_encoding()],
                kMonths[unsigned{date.month()} - 1], unsigned{date.day()}, static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()), int{date.year()});
  return text;
}

std::string StatusWord(std::uint32_t status) {
  static constexpr std::array<const char*, 8> kWords{"unknown",  "queued",   "launch-failed", "running",
                                                     "starting", "finished", "aborted",       "removed"};
  return status < kWords.size() ? kWords[status] : std::to_string(status);
}

std::string DescribeTask(const Task& task) {
  return Entry("Analysis ID", task.AnalysisID) + Entry("Client Port", std::to_string(task.ClientPort)) +
         Entry("Scheduled", Stamp(static_cast<std::uint64_t>(task.Scheduled))) +
         Entry("ProcessID", LowWord(static_cast<std::uint64_t>(task.ProcessID))) + Entry("Task Key", task.TaskKey) +
         Entry("Task Type", LowWord(task.TaskType)) + Entry("Task Level", LowWord(task.TaskLevel)) +
         Entry("UpdateTimestamp", Stamp(task.UpdateTimestamp));
}

}  // namespace tlm
