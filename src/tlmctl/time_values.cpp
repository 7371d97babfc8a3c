#include "tlmctl/time_values.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <optional>
#include <string_view>

#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

std::optional<std::uint32_t> NumberOf(std::string_view digits) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && end == digits.data() + digits.size() ? std::optional(number) : std::nullopt;
}

// 0 for a character that names none.
std::uint64_t SecondsIn(char unit) {
  switch (unit) {
    case 's':
      return 1;
    case 'm':
      return 60;
    case 'h':
      return 3600;
    case 'd':
      return 86400;
    default:
      return 0;
  }
}

}  // namespace

std::chrono::seconds DurationOf(const std::string& text) {
  constexpr std::uint64_t kLongest = std::uint64_t{36525} * 86400;
  std::string_view digits = text;
  std::uint64_t unit = 1;
  if (!digits.empty() && SecondsIn(digits.back()) != 0) {
    unit = SecondsIn(digits.back());
    digits.remove_suffix(1);
  }
  const auto number = NumberOf(digits);
  if (number && *number * unit <= kLongest) return std::chrono::seconds(*number * unit);
  throw Failure{kUsage, '"' + text + "\" is no duration",
                "it is a number of seconds, or one with m, h or d behind it: 90, 15m, 2h, 7d"};
}

std::chrono::seconds TimeUntil(const std::string& clock, std::int64_t now) {
  const std::size_t colon = std::min(clock.find(':'), clock.size());
  const auto hour = NumberOf(std::string_view(clock).substr(0, colon));
  const auto minute = NumberOf(std::string_view(clock).substr(std::min(colon + 1, clock.size())));
  const bool wellFormed = clock.size() - colon == 3 && hour && *hour < 24 && minute && *minute < 60;
  const std::time_t instant = now;
  const std::tm* parts = wellFormed ? std::localtime(&instant) : nullptr;
  if (!parts) throw Failure{kUsage, '"' + clock + "\" is no time of day", "it is written as in 7:05 or 22:30"};
  const std::tm today = *parts;  // the next call may use its place anew
  std::tm time = today;
  for (int days = 0;; ++days) {
    time.tm_mday = today.tm_mday + days;
    time.tm_hour = static_cast<int>(*hour);
    time.tm_min = static_cast<int>(*minute);
    time.tm_sec = 0;
    time.tm_isdst = -1;  // to be found out for that day
    const std::int64_t next = std::mktime(&time);
    if (next > now || days > 1) return std::chrono::seconds(next - now);
  }
}

}  // namespace tlm::ctl
