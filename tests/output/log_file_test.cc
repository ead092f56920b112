// The daily log: the header block's bytes, every flag of an entry, the
// stopwatch, the names, and the error message with its cause numbers.

#include "output/log_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <string>

#include "platform/clock.h"
#include "platform/file.h"
#include "tests/support/temp_dir.h"

namespace {

const std::string kRule = std::string(65, '#') + "\r\n";
const std::string kDateTime = "\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d";

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
  std::string ErrorOf(const std::function<void()>& write) {
    try {
      write();
    } catch (const std::string& message) {
      EXPECT_EQ(log_.GetLastError(), message);
      return message;
    }
    return "no exception";
  }

  testutil::TempDir dir_;
  std::string path_;
  CLogFile log_;
};

TEST_F(LogFileTest, HeaderBlockIsAppendedByteForByte) {
  testutil::WriteBytes(path_, "earlier\r\n");
  log_.WriteHeader();
  EXPECT_TRUE(std::regex_match(log_.GetDateTimeText(), std::regex(kDateTime)));
  EXPECT_EQ(Contents(), "earlier\r\n" + kRule + "# HEADER\r\n# Path: " + path_ + "\r\n# Date/Time: " +
                            log_.GetDateTimeText() + "\r\n# DESCRIPTION: SRV1\r\n# CLOCKS_PER_SEC: 1000\r\n" + kRule +
                            "\r\n");
  CLogFile restarted;  // as after a restart: the same day's file goes on
  restarted.SetPath(path_);
  restarted.Write(0, "tail");
  EXPECT_EQ(Contents().substr(Contents().size() - 6), "\r\ntail");
}

TEST_F(LogFileTest, FlagsShapeTheEntry) {
  // `expected` is a regular expression.
  const struct { uint32_t flags; const char* text; std::string expected; } cases[] = {
      {0, "a\tb\nc", "a\tb\nc"},         {LOG_INDENT1, "T", "\tT"},       {LOG_INDENT2, "T", "\t\tT"},
      {LOG_INDENT3, "T", "\t\t\tT"},       {LOG_INDENT4, "T", "\t\t\t\tT"}, {LOG_INDENT5, "T", "\t\t\t\t\tT"},
      {LOG_INDENT6, "T", "\t\t\t\t\t\tT"}, {0x0003, "T", "\t\tT"},  // the highest indentation bit wins
      {0x0021, "T", "\t\t\t\t\t\tT"},      {0x0005, "T", "\t\t\tT"},
      {LOG_STARS, "T", "\\*{8} T\\*{8}"},   {LOG_HASHES, "T", "#{8} T#{8}"},
      {0x00C0, "T", "\\*{8} #{8} T\\*{8}#{8}"},  // frames close in the order they open
      {0x0C00, "T", kDateTime + " - T\r\n"}, {LOG_NEWLINE1, "T", "T\r\n"}, {LOG_NEWLINE2, "T", "T\r\n\r\n"},
      {LOG_NEWLINE3, "T", "T\r\n\r\n\r\n"},
      {0x1800, "T", "T\r\n\r\n\r\n"},  // line ends add up
      {0x3800, "T", "T(\r\n){6}"},         {0x0800, "", "\r\n"},
      {0x08C1 | LOG_TIME | LOG_ELAPSED, "T", "\\t\\*{8} #{8} " + kDateTime + " - T \\(\\d+\\)\\*{8}#{8}\r\n"},
  };
  for (const auto& c : cases) {
    const std::string entry = Entry(c.flags, c.text);
    EXPECT_TRUE(std::regex_match(entry, std::regex(c.expected))) << std::hex << c.flags << ": " << entry;
  }
  std::string text = "T";
  log_.Write(LOG_INDENT1 | LOG_NEWLINE1, text);
  EXPECT_EQ(text, "\tT\r\n");  // the caller's text is replaced by the entry
  std::filesystem::remove(path_);
  const std::string big(20000, 'x');
  log_.WriteFormat(LOG_NEWLINE1, "%s|%d|%u|%s", big.c_str(), -7, 42u, "end");
  EXPECT_EQ(Contents(), big + "|-7|42|end\r\n");
  std::filesystem::remove(path_);
  log_.WriteFormat(0, "%ls", L"\x100");  // no such character in the C locale: the format as it is
  EXPECT_EQ(Contents(), "%ls");
}

int FigureOf(const std::string& entry) {
  std::smatch match;
  EXPECT_TRUE(std::regex_search(entry, match, std::regex(" \\((-?\\d+)\\)$"))) << entry;
  return match.empty() ? -1 : std::stoi(match[1]);
}

TEST_F(LogFileTest, ElapsedFiguresGrowUntilRestarted) {
  const int first = FigureOf(Entry(LOG_ELAPSED, "a"));
  EXPECT_GE(first, 0);
  platform::Sleep(300);  // well past anything the next entries take
  EXPECT_GE(log_.Elapsed(0), 300);
  const uint32_t before = platform::ProcessClock();
  EXPECT_GE(FigureOf(Entry(LOG_ELAPSED | LOG_RESTART, "c")), 300);
  const int after_restart = FigureOf(Entry(LOG_ELAPSED, "d"));
  EXPECT_LE(after_restart, static_cast<int>(platform::ProcessClock() - before));
  log_.Elapsed(1);
  EXPECT_LE(log_.Elapsed(0), static_cast<int32_t>(platform::ProcessClock() - before));
}

TEST_F(LogFileTest, NamesDatesAndTheStartUpLog) {
  const int64_t low = platform::CalendarSeconds();
  const std::string name = CLogFile::MakeUniqueName();
  const int64_t high = platform::CalendarSeconds();
  bool matched = false;  // seconds, then milliseconds without padding
  for (int64_t seconds = low; seconds <= high && !matched; ++seconds) {
    const std::string prefix = std::to_string(seconds);
    matched = name.compare(0, prefix.size(), prefix) == 0 &&
              std::regex_match(name.substr(prefix.size()), std::regex("0|[1-9]\\d{0,2}"));
  }
  EXPECT_TRUE(matched) << name << " against " << low << ".." << high;
  EXPECT_TRUE(std::regex_match(CLogFile().GetPath(), std::regex("/tmp/\\d+\\.log"))) << CLogFile().GetPath();
  const platform::LocalTime today = platform::LocalNow();
  char date[16];
  std::snprintf(date, sizeof date, "%04d%02d%02d", today.year, today.month, today.day);
  EXPECT_EQ(CLogFile::GetDate(), date);
}

TEST_F(LogFileTest, FailuresNameInstanceFileAndCauseAndLeaveNoTrace) {
  const std::string prefix = "Error in log file for: 'SRV1', file name: '" + path_ + "', cause: '";
  log_.Write(0, "before|");
  {
    int cause = -1;
    auto holder = platform::File::Open(path_, platform::File::Mode::kAppendExclusive, &cause);
    EXPECT_EQ(ErrorOf([&] { log_.Write(LOG_NEWLINE1, "blocked"); }), prefix + "11'");
  }
  platform::testing::InjectFileFault(path_, platform::testing::FileOp::kWrite,
                                     platform::testing::FileFault::kDiskFull);
  EXPECT_EQ(ErrorOf([&] { log_.WriteHeader(); }), prefix + "13'");
  platform::testing::InjectFileFault(path_, platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kAccessDenied);
  EXPECT_EQ(ErrorOf([&] { log_.Write(LOG_NEWLINE1, "denied"); }), prefix + "5'");
  log_.Write(0, "after");
  EXPECT_EQ(Contents(), "before|after");

  const std::string missing = dir_.File("no_such_dir/20030307.log");
  log_.SetPath(missing);
  log_.SetDescription("SRV2");
  EXPECT_EQ(ErrorOf([&] { log_.WriteHeader(); }),
            "Error in log file for: 'SRV2', file name: '" + missing + "', cause: '3'");
  EXPECT_FALSE(std::filesystem::exists(dir_.File("no_such_dir")));
}

}  // namespace
