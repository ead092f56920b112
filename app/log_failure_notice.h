#pragma once
// What standard error is told while the log cannot be written. The worker
// retries such a cycle after every idle pause, so one line per cycle would
// flood the channel; the first failure is reported in full, then at most one
// line a minute with the number of failed cycles since the line before.

#include <cstdint>
#include <string>

class CLogFailureNotice {
 public:
  // Milliseconds from a monotonic clock; wrapping at 32 bits is harmless.
  using Clock = uint32_t (*)();
  static constexpr uint32_t kIntervalMs = 60000;

  explicit CLogFailureNotice(Clock clock);

  // A failure the log could not take. Returns the line for standard error,
  // or "" while it is held back.
  std::string Failed(const std::string& instance, const std::string& log_error,
                     const std::string& entry);
  // The log took a write again: the next failure is reported at once.
  // Returns a closing line after a failure, else "".
  std::string Recovered(const std::string& instance);

 private:
  Clock clock_;
  bool failing_ = false;
  uint32_t last_line_ms_ = 0;
  uint64_t held_back_ = 0;  // failed cycles since the last line
};
