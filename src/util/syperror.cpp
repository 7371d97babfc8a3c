#include "util/syperror.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace tlm {
namespace {

constexpr std::size_t kMessageSize = 1024;  // terminator included
constexpr std::size_t kWhereSize = 1024;
constexpr int kNarrowestMessage = 11;
constexpr int kWidestMessage = 1000;
constexpr std::string_view kRule = "-----\n";
constexpr std::string_view kLinePrefix = "| ";
constexpr std::string_view kTitle = "\aUnexpected Condition Encountered:";

std::atomic<int> messageWidth = 70;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Where the first line of the text ends. The character at the limit is looked at too: it may be the blank to break at.
std::size_t EndOfLine(std::string_view text, std::size_t limit) {
  std::size_t lastBlank = std::string_view::npos;
  for (std::size_t i = 0; i <= limit; ++i) {
    if (i == text.size() || text[i] == '\n') return i;
    if (IsBlank(text[i])) lastBlank = i;
  }
  return lastBlank == std::string_view::npos ? limit : lastBlank;
}

void PrintFrame(std::string_view title, std::string_view body) {
  const std::size_t limit = static_cast<std::size_t>(messageWidth) - kLinePrefix.size();
  std::string frame;
  frame.append("\n").append(kRule).append(kLinePrefix).append(title).append("\n");
  while (!body.empty()) {
    const std::size_t end = EndOfLine(body, limit);
    frame.append(kLinePrefix).append(body.substr(0, end)).append("\n");
    const bool skip = end < body.size() && (body[end] == '\n' || IsBlank(body[end]));
    body.remove_prefix(skip ? end + 1 : end);
  }
  frame.append(kRule);
  std::fputs(frame.c_str(), stderr);
  std::fflush(stderr);
}

constexpr int kExitFunctions = 1024;
std::array<void (*)(), kExitFunctions> exitFunctions;
int lastExitFunction = -1;

void CallExitFunctions() {
  while (lastExitFunction >= 0) exitFunctions[static_cast<std::size_t>(lastExitFunction--)]();
}

}  // namespace

const char* sypWhere(const char* source, int line) {
  // One per thread, so that two threads that complain at once keep their places apart.
  thread_local std::array<char, kWhereSize> text;
  std::snprintf(text.data(), text.size(), "File %s, Line %d", source, line);
  return text.data();
}

void sypWarning(const char* /*where*/, const char* format, ...) {
  std::array<char, kMessageSize> message{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message.data(), message.size(), format, arguments);
  va_end(arguments);
  PrintFrame(kTitle, message.data());
}

void sypAssertFailed(const char* where, const char* expression) {
  sypWarning(where, "Assertion Failed: \"%s\"", expression);
  std::fputs("\nProgram Terminating on Assertion Failure.\n", stderr);
  std::exit(1);
}

int sypAtExit(void (*function)()) {
  if (function == nullptr) {
    sypWarning(sypWhere(__FILE__, __LINE__), kArgumentFailure);
    return 1;
  }
  if (lastExitFunction == kExitFunctions - 1) return 1;
  static const bool registered = std::atexit(CallExitFunctions) == 0;
  if (!registered) return 1;
  exitFunctions[static_cast<std::size_t>(++lastExitFunction)] = function;
  return 0;
}

int sypSetMessageWidth(int width) {
  if (width < kNarrowestMessage || width > kWidestMessage) {
    sypWarning(sypWhere(__FILE__, __LINE__), kArgumentFailure);
    return 0;
  }
  messageWidth = width;
  return 1;
}

}  // namespace tlm
