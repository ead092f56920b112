// Clocks and sleeping on Windows.

#include "platform/clock.h"

#include <windows.h>

#include <ctime>

namespace platform {
namespace {

// 100-nanosecond intervals between 1601-01-01 and 1970-01-01.
constexpr int64_t kEpochDifference = 116444736000000000LL;

int64_t CalendarNowMilliseconds() {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const int64_t ticks =
      (static_cast<int64_t>(now.dwHighDateTime) << 32) | static_cast<int64_t>(now.dwLowDateTime);
  return (ticks - kEpochDifference) / 10000;
}

int64_t FloorDivide(int64_t value, int64_t divisor) {
  return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

}  // namespace

void Sleep(uint32_t milliseconds) { ::Sleep(milliseconds); }

int64_t CalendarSeconds() { return FloorDivide(CalendarNowMilliseconds(), 1000); }

uint32_t CalendarMilliseconds() {
  const int64_t now = CalendarNowMilliseconds();
  return static_cast<uint32_t>(((now % 1000) + 1000) % 1000);
}

uint32_t ProcessClock() {
  // Windows' clock() is elapsed time since the process started, 1000 per
  // second; it wraps at 32 bits.
  static_assert(CLOCKS_PER_SEC == 1000, "the process clock counts milliseconds");
  return static_cast<uint32_t>(std::clock());
}

LocalTime ToLocalTime(int64_t seconds) {
  const __time64_t value = seconds;
  tm parts{};
  if (_localtime64_s(&parts, &value) != 0) return LocalTime{0, 0, 0, 0, 0, 0};
  return LocalTime{parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                   parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

LocalTime LocalNow() { return ToLocalTime(CalendarSeconds()); }

}  // namespace platform
