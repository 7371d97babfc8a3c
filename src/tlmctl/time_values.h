// Durations and times of day, as people type them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tlm::ctl {

inline constexpr char kDurationValue[] = "DURATION";

// A number of seconds, as in "90" or "90s", or of minutes, hours or days, as in "15m", "2h" and "7d"; no more than 100
// years, which 32 bits hold. Throws Failure for any other text.
std::chrono::seconds DurationOf(const std::string& text);

// From a moment, in seconds since 1970, to the next one at which a clock here shows the time, as in "22:30". Throws
// Failure if the text is no time of day.
std::chrono::seconds TimeUntil(const std::string& clock, std::int64_t now);

}  // namespace tlm::ctl
