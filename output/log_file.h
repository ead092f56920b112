#pragma once
// CLogFile: the process's plain-text log. Every entry is one exclusive
// open-append-close of the file, so nothing is buffered or held between
// writes; a writer that meets the file held by another fails at once.

#include <cstdint>
#include <string>

// Entry flags; the bits combine freely.
constexpr uint32_t LOG_INDENT1 = 0x0001;   // one tab
constexpr uint32_t LOG_INDENT2 = 0x0002;   // two tabs
constexpr uint32_t LOG_INDENT3 = 0x0004;   // three tabs
constexpr uint32_t LOG_INDENT4 = 0x0008;   // four tabs
constexpr uint32_t LOG_INDENT5 = 0x0010;   // five tabs
constexpr uint32_t LOG_INDENT6 = 0x0020;   // six tabs (the highest indentation bit wins)
constexpr uint32_t LOG_STARS = 0x0040;     // "******** " before, "********" after
constexpr uint32_t LOG_HASHES = 0x0080;    // "######## " before, "########" after
constexpr uint32_t LOG_ELAPSED = 0x0100;   // " (ms)" of the stopwatch after the text
constexpr uint32_t LOG_RESTART = 0x0200;   // with LOG_ELAPSED: restart the stopwatch
constexpr uint32_t LOG_TIME = 0x0400;      // local date/time and " - " before the text
constexpr uint32_t LOG_NEWLINE1 = 0x0800;  // one CR LF at the end
constexpr uint32_t LOG_NEWLINE2 = 0x1000;  // two CR LF at the end
constexpr uint32_t LOG_NEWLINE3 = 0x2000;  // three CR LF at the end

class CLogFile {
 public:
  // Names the file platform::kStartupLogDirectory + MakeUniqueName() + ".log" and starts the stopwatch.
  CLogFile();
  virtual ~CLogFile();
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;

  void SetPath(const std::string& path);
  void SetDescription(const std::string& description);

  // Appends the header block. File errors raise the std::string message
  // "Error in log file for: ...".
  void WriteHeader();
  // Decorates `text` by the flags (in place, the caller sees the result) and
  // appends it; flags 0 write the text exactly as given.
  void Write(uint32_t flags, std::string& text);
  void Write(uint32_t flags, const std::string& text);
  // printf-style formatting into a text of any length, then Write.
  void WriteFormat(uint32_t flags, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // Local date and time as MM/DD/YY hh:mm:ss; kept in the date/time text.
  std::string GetDateTime();
  // Local date as YYYYMMDD.
  static std::string GetDate();
  // Calendar seconds run together with the milliseconds of a second reading.
  static std::string MakeUniqueName();
  // Milliseconds since the stopwatch started; a nonzero `restart` restarts it.
  int32_t Elapsed(uint32_t restart);

  const std::string& GetPath() const { return path_; }
  const std::string& GetDescription() const { return description_; }
  const std::string& GetLastError() const { return last_error_; }
  const std::string& GetDateTimeText() const { return date_time_; }

 private:
  void Append(const std::string& bytes);

  std::string path_;
  std::string date_time_;
  std::string description_;
  std::string last_error_;
  uint32_t start_tick_;
};
