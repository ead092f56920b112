#pragma once
// Sleeping, calendar time, local time and the process clock.

#include <cstdint>

namespace platform {

void Sleep(uint32_t milliseconds);

// Seconds since 1970 (UTC), one reading.
int64_t CalendarSeconds();
// The millisecond part (0..999) of a fresh reading of the calendar clock.
uint32_t CalendarMilliseconds();

// Milliseconds since the process started, from a monotonic clock, wrapping at
// 32 bits. Elapsed time, not processor time.
uint32_t ProcessClock();

struct LocalTime {
  int year;    // e.g. 2003
  int month;   // 1..12
  int day;     // 1..31
  int hour;    // 0..23
  int minute;  // 0..59
  int second;  // 0..60
};

// Local time of a calendar time given in seconds since 1970; all fields 0
// when the system cannot convert it.
LocalTime ToLocalTime(int64_t seconds);
// Local time now.
LocalTime LocalNow();

}  // namespace platform
