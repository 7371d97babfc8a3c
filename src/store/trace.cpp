#include "store/trace.h"

#include <cstdarg>
#include <cstdio>
#include <optional>

#include "platform/file.h"
#include "platform/file_system.h"
#include "platform/thread.h"

namespace tlm {

namespace {

using platform::File;

[[gnu::format(printf, 1, 0)]] std::string Format(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = Format(format, arguments);
  va_end(arguments);
  return text;
}

std::string TimePrefix() {
  const platform::LocalTime now = platform::LocalTimeNow();
  return Format("[%02d/%02d/%04d %02d:%02d:%02d] :", now.Day, now.Month, now.Year, now.Hour, now.Minute, now.Second);
}

// The log if it is switched on.
std::optional<File> OpenLog(const std::string& root) {
  platform::FileStatus status;
  if (platform::GetFileStatus(root + platform::kPathSeparator + "JMTrace.on", status) != 0) return std::nullopt;
  return File::Open(root + platform::kPathSeparator + "JMTrace.log", File::Mode::Append);
}

}  // namespace

void Trace(JobManagerState& state, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::string text = Format(format, arguments);
  va_end(arguments);

  std::string root;
  {
    const MAutoLock lock(state.StateLock);
    root = state.TempRoot;
    if (state.ConsoleTrace) std::fputs(text.c_str(), stdout);
  }
  if (std::optional<File> log = OpenLog(root)) static_cast<void>(log->Write(TimePrefix() + text));
}

}  // namespace tlm
