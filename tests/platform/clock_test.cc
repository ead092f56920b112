#include "platform/clock.h"

#include <stdlib.h>

#include <chrono>
#include <ctime>
#include <string>

#include "gtest/gtest.h"
#include "tests/platform/child_process.h"

namespace {

// Switches the process's time zone for one test.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* old = getenv("TZ")) {
      had_ = true;
      old_ = old;
    }
    setenv("TZ", zone, 1);
    tzset();
  }
  ~TimeZone() {
    if (had_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool had_ = false;
  std::string old_;
};

TEST(ClockTest, ProcessClockCountsFromProcessStart) {
  // A fresh process reads a small number: the clock counts from its start,
  // not from boot and not processor time.
  const auto result = platform_test::Run({BS_TEST_CHILD, "process-clock"});
  ASSERT_EQ(result.exit_code, 0);
  const unsigned long reading = std::stoul(result.out);
  EXPECT_LT(reading, 60000ul);
}

TEST(ClockTest, ProcessClockIsElapsedTime) {
  const uint32_t first = platform::ProcessClock();
  platform::Sleep(30);  // sleeping uses no processor time, but time passes
  const uint32_t second = platform::ProcessClock();
  EXPECT_GE(second - first, 30u);
  EXPECT_LE(first, second);
}

TEST(ClockTest, SleepLastsAtLeastAsLongAsAsked) {
  for (uint32_t ms : {0u, 1u, 25u}) {
    const auto start = std::chrono::steady_clock::now();
    platform::Sleep(ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(ms));
  }
}

TEST(ClockTest, CalendarTimeMatchesTheSystemClock) {
  const int64_t before = static_cast<int64_t>(time(nullptr));
  const int64_t seconds = platform::CalendarSeconds();
  const int64_t after = static_cast<int64_t>(time(nullptr));
  EXPECT_LE(before, seconds);
  EXPECT_LE(seconds, after);
  for (int i = 0; i < 100; ++i) EXPECT_LT(platform::CalendarMilliseconds(), 1000u);
}

TEST(ClockTest, CalendarMillisecondsMove) {
  const uint32_t first = platform::CalendarMilliseconds();
  platform::Sleep(5);
  EXPECT_NE(platform::CalendarMilliseconds(), first);
}

TEST(ClockTest, LocalTimeFollowsTheTimeZone) {
  {
    TimeZone utc("UTC0");
    const platform::LocalTime t = platform::ToLocalTime(1046999236);  // 2003-03-07 01:07:16 UTC
    EXPECT_EQ(t.year, 2003);
    EXPECT_EQ(t.month, 3);
    EXPECT_EQ(t.day, 7);
    EXPECT_EQ(t.hour, 1);
    EXPECT_EQ(t.minute, 7);
    EXPECT_EQ(t.second, 16);
    const platform::LocalTime epoch = platform::ToLocalTime(0);
    EXPECT_EQ(epoch.year, 1970);
    EXPECT_EQ(epoch.month, 1);
    EXPECT_EQ(epoch.day, 1);
  }
  {
    TimeZone east("XST-9");  // nine hours east of UTC, no daylight saving
    const platform::LocalTime t = platform::ToLocalTime(1046999236);
    EXPECT_EQ(t.day, 7);
    EXPECT_EQ(t.hour, 10);
    EXPECT_EQ(t.minute, 7);
  }
}

TEST(ClockTest, LocalNowIsNow) {
  TimeZone utc("UTC0");
  const platform::LocalTime now = platform::LocalNow();
  const platform::LocalTime expected = platform::ToLocalTime(platform::CalendarSeconds());
  EXPECT_EQ(now.year, expected.year);
  EXPECT_EQ(now.month, expected.month);
  EXPECT_EQ(now.day, expected.day);
  EXPECT_GE(now.year, 2024);
}

TEST(ClockTest, UnconvertibleTimeGivesZeros) {
  const platform::LocalTime t = platform::ToLocalTime(INT64_MAX);
  EXPECT_EQ(t.year, 0);
  EXPECT_EQ(t.month, 0);
  EXPECT_EQ(t.day, 0);
}

}  // namespace
