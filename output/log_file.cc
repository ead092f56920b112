#include "output/log_file.h"

#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/file.h"
#include "platform/path.h"

namespace {

constexpr char kRule[] =
    "#################################################################\r\n";  // 65 signs
static_assert(sizeof(kRule) - 1 == 67, "rule line is 65 signs and CR LF");

std::string TwoDigits(int value) {
  char text[3] = {static_cast<char>('0' + (value / 10) % 10), static_cast<char>('0' + value % 10), 0};
  return text;
}

}  // namespace

CLogFile::CLogFile()
    : path_(platform::kStartupLogDirectory + MakeUniqueName() + ".log"), start_tick_(platform::ProcessClock()) {}

CLogFile::~CLogFile() = default;

void CLogFile::SetPath(const std::string& path) { path_ = path; }

void CLogFile::SetDescription(const std::string& description) { description_ = description; }

std::string CLogFile::GetDateTime() {
  const platform::LocalTime now = platform::LocalNow();
  date_time_ = TwoDigits(now.month) + "/" + TwoDigits(now.day) + "/" + TwoDigits(now.year % 100) +
               " " + TwoDigits(now.hour) + ":" + TwoDigits(now.minute) + ":" +
               TwoDigits(now.second);
  return date_time_;
}

std::string CLogFile::GetDate() {
  const platform::LocalTime now = platform::LocalNow();
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02d%02d", now.year % 10000, now.month % 100,
                now.day % 100);
  return text;
}

std::string CLogFile::MakeUniqueName() {
  // Two readings, used as they come: seconds, then the milliseconds of a
  // fresh reading, unpadded.
  const int64_t seconds = platform::CalendarSeconds();
  const uint32_t milliseconds = platform::CalendarMilliseconds();
  return std::to_string(seconds) + std::to_string(milliseconds);
}

int32_t CLogFile::Elapsed(uint32_t restart) {
  const uint32_t ticks = platform::ProcessClock() - start_tick_;
  if (restart != 0) start_tick_ = platform::ProcessClock();
  return static_cast<int32_t>(ticks);
}

void CLogFile::Append(const std::string& bytes) {
  const int cause = platform::AppendToFile(path_, bytes.data(), bytes.size());
  if (cause == platform::kFileOk) return;
  last_error_ = "Error in log file for: '" + description_ + "', file name: '" + path_ +
                "', cause: '" + std::to_string(cause) + "'";
  throw last_error_;
}

void CLogFile::WriteHeader() {
  std::string block = kRule;
  block += "# HEADER\r\n";
  block += "# Path: " + path_ + "\r\n";
  block += "# Date/Time: " + GetDateTime() + "\r\n";
  block += "# DESCRIPTION: " + description_ + "\r\n";
  block += "# CLOCKS_PER_SEC: 1000\r\n";
  block += kRule;
  block += "\r\n";
  Append(block);
}

void CLogFile::Write(uint32_t flags, const std::string& text) {
  std::string copy = text;
  Write(flags, copy);
}

void CLogFile::Write(uint32_t flags, std::string& text) {
  if (flags != 0) {
    // Indentation replaces, it does not add up: the highest bit set wins.
    std::string entry;
    const uint32_t indent_bits[] = {LOG_INDENT1, LOG_INDENT2, LOG_INDENT3,
                                    LOG_INDENT4, LOG_INDENT5, LOG_INDENT6};
    for (std::size_t i = 0; i < 6; ++i) {
      if (flags & indent_bits[i]) entry.assign(i + 1, '\t');
    }
    if (flags & LOG_STARS) entry += "******** ";
    if (flags & LOG_HASHES) entry += "######## ";
    if (flags & LOG_TIME) entry += GetDateTime() + " - ";
    entry += text;
    if (flags & LOG_ELAPSED) entry += " (" + std::to_string(Elapsed(flags & LOG_RESTART)) + ")";
    if (flags & LOG_STARS) entry += "********";
    if (flags & LOG_HASHES) entry += "########";
    if (flags & LOG_NEWLINE1) entry += "\r\n";
    if (flags & LOG_NEWLINE2) entry += "\r\n\r\n";
    if (flags & LOG_NEWLINE3) entry += "\r\n\r\n\r\n";
    text = std::move(entry);
  }
  Append(text);
}

namespace {

// Formats into a text of exactly the needed length: one pass to measure, one to write.
std::string FormatArguments(const char* format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  // Nothing sensible can be formatted; keep the entry's words at least.
  if (length < 0) return format;
  std::vector<char> buffer(static_cast<std::size_t>(length) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), format, args);
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

}  // namespace

void CLogFile::WriteFormat(uint32_t flags, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text;
  try {
    text = FormatArguments(format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
  Write(flags, text);
}
