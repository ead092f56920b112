// The daily log: header block, entry flags, stopwatch, names, error messages.

#include "output/log_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <string>

#include "platform/clock.h"
#include "platform/file.h"
#include "tests/support/expected_file.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

class LogFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.File("20030307.log");
    log_.SetPath(path_);
    log_.SetDescription("SRV1");
  }
  void TearDown() override { platform::testing::ClearFileFaults(); }
  std::string Contents() const { return testutil::ReadBytes(path_); }
  // Writes `text` with `flags` into a fresh file and returns what landed there.
  std::string Entry(uint32_t flags, const std::string& text) {
    std::filesystem::remove(path_);
    log_.Write(flags, text);
    return Contents();
  }
  // The message thrown (and kept as the last error), or that none was.
  std::string ErrorOf(const std::function<void()>& write) {
    try {
      write();
    } catch (const std::string& message) {
      return message + (message == log_.GetLastError() ? "" : " (not the last error)");
    }
    return "no exception";
  }

  testutil::TempDir dir_;
  std::string path_;
  CLogFile log_;
};

// The header block, an entry per flag combination ("flags text -> entry";
// stopwatch figures as <ms>), the failures and what they left: one file.
TEST_F(LogFileTest, HeaderEntriesAndFailuresAsWritten) {
  testutil::WriteBytes(path_, "earlier\r\n");
  log_.WriteHeader();
  std::string out = "header: " + testutil::Escaped(Contents()) + "\n";
  EXPECT_NE(Contents().find("# Date/Time: " + log_.GetDateTimeText() + "\r\n"), std::string::npos);  // as kept
  CLogFile restarted;  // as after a restart: the same day's file goes on
  restarted.SetPath(path_);
  restarted.Write(0, "tail");
  out += "restarted, tail: " + testutil::Escaped(Contents().substr(Contents().size() - 6)) + "\n";

  const std::pair<uint32_t, const char*> cases[] = {
      {0, "a\tb\nc"}, {LOG_INDENT1, "T"}, {LOG_INDENT2, "T"}, {LOG_INDENT3, "T"}, {LOG_INDENT4, "T"},
      {LOG_INDENT5, "T"}, {LOG_INDENT6, "T"}, {0x0003, "T"}, {0x0021, "T"}, {0x0005, "T"}, {LOG_STARS, "T"},
      {LOG_HASHES, "T"}, {0x00C0, "T"}, {0x0C00, "T"}, {LOG_NEWLINE1, "T"}, {LOG_NEWLINE2, "T"},
      {LOG_NEWLINE3, "T"}, {0x1800, "T"}, {0x3800, "T"}, {0x0800, ""}, {0x08C1 | LOG_TIME | LOG_ELAPSED, "T"}};
  for (const auto& [flags, text] : cases) {
    const std::string entry = std::regex_replace(Entry(flags, text), std::regex(R"( \(\d+\))"), " (<ms>)");
    char shown_flags[16];
    std::snprintf(shown_flags, sizeof shown_flags, "0x%04X ", flags);
    out += shown_flags + testutil::Escaped(text) + " -> " + testutil::Escaped(entry) + "\n";
  }
  std::string text = "T";
  log_.Write(LOG_INDENT1 | LOG_NEWLINE1, text);
  out += "the caller's text becomes: " + testutil::Escaped(text) + "\n";
  std::filesystem::remove(path_);
  const std::string big(20000, 'x');
  log_.WriteFormat(LOG_NEWLINE1, "%s|%d|%u|%s", big.c_str(), -7, 42u, "end");
  out += "formatted: " + testutil::Escaped(Contents()) + "\n";
  std::filesystem::remove(path_);
  log_.WriteFormat(0, "%ls", L"\x100");  // no such character in the C locale: the format as it is
  out += "unprintable: " + Contents() + "\n";

  log_.Write(0, "before|");
  {
    int cause = -1;
    auto holder = platform::File::Open(path_, platform::File::Mode::kAppendExclusive, &cause);
    out += "held: " + ErrorOf([&] { log_.Write(LOG_NEWLINE1, "blocked"); }) + "\n";
  }
  using platform::testing::FileFault;
  using platform::testing::FileOp;
  platform::testing::InjectFileFault(path_, FileOp::kWrite, FileFault::kDiskFull);
  out += "disk full: " + ErrorOf([&] { log_.WriteHeader(); }) + "\n";
  platform::testing::InjectFileFault(path_, FileOp::kOpen, FileFault::kAccessDenied);
  out += "denied: " + ErrorOf([&] { log_.Write(LOG_NEWLINE1, "denied"); }) + "\n";
  log_.Write(0, "after");
  out += "left: " + Contents() + "\n";
  log_.SetPath(dir_.File("no_such_dir/20030307.log"));
  log_.SetDescription("SRV2");
  out += "no folder: " + ErrorOf([&] { log_.WriteHeader(); }) + "\n";
  out += "folder made: " + testutil::Join(std::filesystem::exists(dir_.File("no_such_dir"))) + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(testutil::Normalised(out, {{dir_.path(), "<DIR>"}, {big, "<20000 x>"}}),
                                            "tests/output/expected/log_entries.txt"));
}

int FigureOf(const std::string& entry) {
  std::smatch match;
  EXPECT_TRUE(std::regex_search(entry, match, std::regex(" \\((-?\\d+)\\)$"))) << entry;
  return match.empty() ? -1 : std::stoi(match[1]);
}

TEST_F(LogFileTest, ElapsedFiguresGrowUntilRestarted) {
  EXPECT_GE(FigureOf(Entry(LOG_ELAPSED, "a")), 0);
  platform::Sleep(300);  // well past anything the next entries take
  const uint32_t before = platform::ProcessClock();
  EXPECT_GE(FigureOf(Entry(LOG_ELAPSED | LOG_RESTART, "c")), 300);
  // The figure is read before the clock: one expression would leave the order open.
  const int after_restart = FigureOf(Entry(LOG_ELAPSED, "d"));
  EXPECT_LE(after_restart, static_cast<int>(platform::ProcessClock() - before));
}

TEST_F(LogFileTest, NamesDatesAndTheStartUpLog) {
  const int64_t low = platform::CalendarSeconds();
  const std::string name = CLogFile::MakeUniqueName();
  // Ten digits of seconds, then the milliseconds without padding.
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(name, parts, std::regex("(\\d{10})(0|[1-9]\\d{0,2})"))) << name;
  const int64_t seconds = std::stoll(parts[1]);
  EXPECT_TRUE(seconds >= low && seconds <= platform::CalendarSeconds()) << name << " after " << low;
  EXPECT_TRUE(std::regex_match(CLogFile().GetPath(), std::regex("/tmp/\\d+\\.log"))) << CLogFile().GetPath();
  const platform::LocalTime today = platform::LocalNow();
  char date[16];
  std::snprintf(date, sizeof date, "%04d%02d%02d", today.year, today.month, today.day);
  EXPECT_EQ(CLogFile::GetDate(), date);
}

}  // namespace
