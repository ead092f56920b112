// Clocks and sleeping on POSIX.

#include "platform/clock.h"

#include <chrono>
#include <ctime>
#include <thread>

namespace platform {
namespace {

// steady_clock is CLOCK_MONOTONIC: elapsed time, never set back.
int64_t MonotonicMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// system_clock is the calendar clock (CLOCK_REALTIME).
int64_t CalendarNowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
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
  // Sleeps on after a signal for the time that is left.
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

int64_t CalendarSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

uint32_t CalendarMilliseconds() {
  const int64_t now = CalendarNowMilliseconds();
  return static_cast<uint32_t>(((now % 1000) + 1000) % 1000);
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
