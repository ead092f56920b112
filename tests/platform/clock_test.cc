// Clocks: the process clock counts elapsed milliseconds from the process
// start, sleeps last at least as asked, calendar time is the system's, and
// local time follows the time zone.

#include "platform/clock.h"

#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <ctime>

#include "gtest/gtest.h"
#include "tests/platform/helper.h"

namespace {

void SetTimeZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::string Text(const platform::LocalTime& t) {
  char text[64];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
  return text;
}

TEST(ClockTest, ProcessClockCountsElapsedTimeFromTheProcessStart) {
  // A fresh process reads a small number: not time since boot.
  const auto result = platform_test::Run({"process-clock"});
  ASSERT_EQ(result.exit_code, 0);
  EXPECT_LT(std::stoul(result.out), 60000ul);
  // Sleeping uses no processor time, but the clock moves on.
  for (uint32_t ms : {0u, 1u, 30u}) {
    const auto start = std::chrono::steady_clock::now();
    const uint32_t first = platform::ProcessClock();
    platform::Sleep(ms);
    EXPECT_GE(platform::ProcessClock() - first, ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(ms));
  }
}

TEST(ClockTest, CalendarAndLocalTime) {
  const int64_t before = static_cast<int64_t>(time(nullptr));
  const int64_t seconds = platform::CalendarSeconds();
  EXPECT_LE(before, seconds);
  EXPECT_LE(seconds, static_cast<int64_t>(time(nullptr)));
  const uint32_t first = platform::CalendarMilliseconds();
  EXPECT_LT(first, 1000u);
  platform::Sleep(5);
  EXPECT_NE(platform::CalendarMilliseconds(), first);

  const struct {
    const char* zone;
    int64_t seconds;
    platform::LocalTime expected;
  } cases[] = {
      {"XST-9", 1046999236, {2003, 3, 7, 10, 7, 16}},  // nine hours east, no daylight saving
      {"UTC0", 1046999236, {2003, 3, 7, 1, 7, 16}},
      {"UTC0", 0, {1970, 1, 1, 0, 0, 0}},
      {"UTC0", INT64_MAX, {0, 0, 0, 0, 0, 0}},  // cannot be converted
  };
  const char* saved = getenv("TZ");
  const std::string old_zone = saved != nullptr ? saved : "";
  for (const auto& c : cases) {
    SetTimeZone(c.zone);
    EXPECT_EQ(Text(platform::ToLocalTime(c.seconds)), Text(c.expected)) << c.zone << " " << c.seconds;
  }
  const platform::LocalTime now = platform::LocalNow();
  EXPECT_EQ(Text(now).substr(0, 10), Text(platform::ToLocalTime(platform::CalendarSeconds())).substr(0, 10));
  EXPECT_GE(now.year, 2024);
  if (saved != nullptr) {
    SetTimeZone(old_zone.c_str());
  } else {
    unsetenv("TZ");
    tzset();
  }
}

}  // namespace
