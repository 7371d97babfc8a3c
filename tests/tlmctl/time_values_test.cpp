// Durations and times of day, as people type them.
#include "tlmctl/time_values.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>

#include "tlmctl/exit_code.h"

namespace tlm::ctl {
namespace {
template <class Parse>
std::optional<std::int64_t> Seconds(Parse parse) {
  try {
    return parse().count();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code, kUsage);
    return std::nullopt;
  }
}

TEST(TimeValues, AreDurationsInOneUnit) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {"90", 90}, {"90s", 90}, {"15m", 900}, {"2h", 7200}, {"7d", 604800}, {"0", 0}, {"36525d", 3155760000}};
  for (const auto& [text, seconds] : cases) {
    EXPECT_EQ(Seconds([&, word = text] { return DurationOf(word); }), seconds) << text;
  }
  for (const char* none :
       {"36526d", "", "h", "-1", "+1", "1.5h", "2H", "1h30m", " 1", "1 h", "4294967296", "10w", "m5", "0x10"}) {
    EXPECT_EQ(Seconds([&] { return DurationOf(none); }), std::nullopt) << none;
  }
}

TEST(TimeValues, AreTheNextTimeOfDayOfTheClockHere) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  constexpr std::int64_t kNoon = 1275300000;                     // 2010-05-31 12:00, summer time
  constexpr std::int64_t kEveningBeforeSummerTime = 1269723600;  // 2010-03-27 22:00
  const struct {
    std::int64_t Now;
    const char* Clock;
    std::int64_t Seconds;
  } cases[] = {
      {kNoon, "22:30", 10 * 3600 + 1800},
      {kNoon, "12:01", 60},
      {kNoon, "12:00", 86400},
      {kNoon, "0:00", 43200},
      {kNoon, "07:05", 19 * 3600 + 300},
      {kEveningBeforeSummerTime, "6:00", 7 * 3600},
  };
  for (const auto& expected : cases) {
    EXPECT_EQ(Seconds([&] { return TimeUntil(expected.Clock, expected.Now); }), expected.Seconds) << expected.Clock;
  }
  for (const char* none : {"24:00", "12:60", "12", "12:5", ":30", "", "12:30:00", "-1:30"}) {
    EXPECT_EQ(Seconds([&] { return TimeUntil(none, kNoon); }), std::nullopt) << none;
  }
}
}  // namespace
}  // namespace tlm::ctl
