// Threads, and what time it is.
#include "platform/thread.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace tlm::platform {
namespace {

TEST(DetachedThread, RunsItsBodyElsewhere) {
  std::atomic<std::thread::id> body;
  ASSERT_TRUE(StartDetachedThread([&] { body = std::this_thread::get_id(); }));
  while (body.load() == std::thread::id()) YieldTimeSlice();
  EXPECT_NE(body.load(), std::this_thread::get_id());
}

TEST(LocalTime, CountsAsPeopleDo) {
  const auto expected = [] {
    const std::time_t now = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%d.%m.%Y %H:%M", std::localtime(&now));
    return std::string(text);
  };
  std::string before, text;
  do {  // again if the minute changes in between
    before = expected();
    const LocalTime now = LocalTimeNow();
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%02d.%02d.%04d %02d:%02d", now.Day, now.Month, now.Year, now.Hour,
                  now.Minute);
    text = buffer;
  } while (before != expected());
  EXPECT_EQ(text, before);
  EXPECT_LE(std::abs(SecondsSince1970() - std::time(nullptr)), 1);
}

}  // namespace
}  // namespace tlm::platform
