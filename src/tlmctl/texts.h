// How states, times and durations are written for a reader.
#pragma once

#include <cstdint>
#include <string>

#include "jm/task.h"

namespace tlm::ctl {

inline constexpr char kNothing[] = "-";  // stands for a value that there is not yet, or never was

// "unknown" of 0, which no job of a server has.
std::string StatusText(std::uint32_t status);  // as the server's own people say it: "LaunchFailed"
std::string RunClassText(std::uint32_t runClass);
std::string RunClassWord(std::uint32_t runClass);
inline constexpr char kPriorityValue[] = "{idle,normal,high,realtime}";
std::string PriorityText(std::uint32_t priority);
// The level of a name; throws Failure if there is none.
std::uint32_t PriorityOf(const std::string& name);
std::string ResultFlagsText(std::uint32_t flags);

// In local time, as in "2010-05-31 17:04:09"; kNothing for 0.
std::string LocalTimeText(std::int64_t time);
// The same in short: "17:04:09" for today, "2010-05-31" for another day.
std::string MomentText(std::int64_t time);
// In UTC, as in "2010-05-31T15:04:09Z".
std::string UtcTimeText(std::int64_t time);
// As in "964 bytes", "1.5 MB".
std::string SizeText(std::uint64_t bytes);
// Of seconds, as in "7 s", "3:07" and "26:03:07".
std::string DurationText(std::int64_t seconds);
// As in "0.21 ms".
std::string MillisecondsText(double milliseconds);

// Of the job's last process. kNothing unless the job has ended and a process was started for it; "unknown" if
// the server had not started it.
std::string ExitCodeText(const Task& task);
// From the start of the job's last process to its end, or to now; kNothing if none was started;
// "unknown" once one has ended that the server had not started.
std::string ElapsedText(const Task& task);

// "[#######.............]  35 %", with as many characters between the brackets. The number stands as it was reported,
// also outside 0 to 100.
std::string ProgressBar(std::int32_t percent, int width);

}  // namespace tlm::ctl
