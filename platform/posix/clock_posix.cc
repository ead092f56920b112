// Clocks and sleeping on POSIX.

#include "platform/clock.h"

#include <cerrno>
#include <ctime>

namespace platform {
namespace {

int64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// The process clock's zero. A function-local static so that static
// constructors of other translation units (the log keeps a start tick) may
// read the clock before this file's own statics are built.
int64_t ProcessStart() {
  static const int64_t start = MonotonicMilliseconds();
  return start;
}

// Takes the reading during static initialisation, i.e. at process start,
// even when nobody reads the clock until much later.
[[maybe_unused]] const int64_t kStartReading = ProcessStart();

LocalTime FromTm(const tm& t) {
  return LocalTime{t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
}

}  // namespace

void Sleep(uint32_t milliseconds) {
  timespec rest{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000L};
  // A signal must not cut the sleep short.
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

int64_t CalendarSeconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec);
}

uint32_t CalendarMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint32_t>(now.tv_nsec / 1000000);
}

uint32_t ProcessClock() {
  // Wraps at 32 bits like the clock it stands in for.
  return static_cast<uint32_t>(MonotonicMilliseconds() - ProcessStart());
}

LocalTime ToLocalTime(int64_t seconds) {
  const time_t value = static_cast<time_t>(seconds);
  tm parts{};
  if (localtime_r(&value, &parts) == nullptr) {
    return LocalTime{0, 0, 0, 0, 0, 0};
  }
  return FromTm(parts);
}

LocalTime LocalNow() { return ToLocalTime(CalendarSeconds()); }

}  // namespace platform
