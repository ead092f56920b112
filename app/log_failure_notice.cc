#include "app/log_failure_notice.h"

CLogFailureNotice::CLogFailureNotice(Clock clock) : clock_(clock) {}

std::string CLogFailureNotice::Failed(const std::string& instance, const std::string& log_error,
                                      const std::string& entry) {
  const uint32_t now = clock_();
  const std::string prefix = "batchserver " + instance + ": ";
  if (!failing_) {
    failing_ = true;
    last_line_ms_ = now;
    held_back_ = 0;
    return prefix + log_error + "; not logged: " + entry + "\n";
  }
  ++held_back_;
  if (static_cast<uint32_t>(now - last_line_ms_) < kIntervalMs) return "";
  const std::string line = prefix + "still failing, " + std::to_string(held_back_) +
                           " cycles since the last report: " + log_error +
                           "; not logged: " + entry + "\n";
  last_line_ms_ = now;
  held_back_ = 0;
  return line;
}

std::string CLogFailureNotice::Recovered(const std::string& instance) {
  if (!failing_) return "";
  failing_ = false;
  const std::string line = "batchserver " + instance + ": the log is written again, " +
                           std::to_string(held_back_) +
                           " failed cycles since the last report\n";
  held_back_ = 0;
  return line;
}
