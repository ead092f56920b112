#include "output/log_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "platform/clock.h"
#include "platform/file.h"
#include "tests/support/temp_dir.h"

namespace {

const std::string kRule = std::string(65, '#') + "\r\n";
const char kDateTime[] = "\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d";

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

  testutil::TempDir dir_;
  std::string path_;
  CLogFile log_;
};

TEST_F(LogFileTest, HeaderBlockBytes) {
  log_.WriteHeader();
  const std::string expected = kRule + "# HEADER\r\n# Path: " + path_ + "\r\n# Date/Time: " +
                               log_.GetDateTimeText() +
                               "\r\n# DESCRIPTION: SRV1\r\n# CLOCKS_PER_SEC: 1000\r\n" + kRule +
                               "\r\n";
  EXPECT_EQ(Contents(), expected);
  EXPECT_TRUE(std::regex_match(log_.GetDateTimeText(), std::regex(kDateTime)));
  EXPECT_EQ(kRule.size(), 67u);
}

TEST_F(LogFileTest, HeadersAndEntriesAreAppendedNeverTruncated) {
  testutil::WriteBytes(path_, "earlier\r\n");
  log_.WriteHeader();
  log_.Write(LOG_NEWLINE1, "line");
  log_.WriteHeader();
  {
    // A second object, as after a restart, appends to the same day's file.
    CLogFile restarted;
    restarted.SetPath(path_);
    restarted.Write(0, "tail");
  }
  const std::string text = Contents();
  EXPECT_EQ(text.rfind("earlier\r\n" + kRule, 0), 0u);
  EXPECT_NE(text.find(kRule + "\r\nline\r\n" + kRule), std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 6), "\r\ntail");
}

TEST_F(LogFileTest, NoFlagsWriteTheTextExactly) {
  EXPECT_EQ(Entry(0, "a\tb\nc"), "a\tb\nc");
  std::string text = "kept";
  log_.Write(0, text);
  EXPECT_EQ(text, "kept");
}

TEST_F(LogFileTest, HighestIndentationBitWins) {
  EXPECT_EQ(Entry(LOG_INDENT1, "T"), "\tT");
  EXPECT_EQ(Entry(LOG_INDENT2, "T"), "\t\tT");
  EXPECT_EQ(Entry(LOG_INDENT3, "T"), "\t\t\tT");
  EXPECT_EQ(Entry(LOG_INDENT4, "T"), "\t\t\t\tT");
  EXPECT_EQ(Entry(LOG_INDENT5, "T"), "\t\t\t\t\tT");
  EXPECT_EQ(Entry(LOG_INDENT6, "T"), "\t\t\t\t\t\tT");
  EXPECT_EQ(Entry(0x0003, "T"), "\t\tT");
  EXPECT_EQ(Entry(0x0021, "T"), "\t\t\t\t\t\tT");
  EXPECT_EQ(Entry(0x0005, "T"), "\t\t\tT");
}

TEST_F(LogFileTest, FramesOpenAndCloseInTheSameOrder) {
  EXPECT_EQ(Entry(0x00C0, "T"), "******** ######## T********########");
  EXPECT_EQ(Entry(LOG_STARS, "T"), "******** T********");
  EXPECT_EQ(Entry(LOG_HASHES, "T"), "######## T########");
}

TEST_F(LogFileTest, TimeStampedLine) {
  const std::string entry = Entry(0x0C00, "T");
  EXPECT_TRUE(std::regex_match(entry, std::regex(std::string("^") + kDateTime + " - T\r\n$")))
      << entry;
  EXPECT_EQ(entry.substr(0, 17), log_.GetDateTimeText());
}

TEST_F(LogFileTest, LineEndsAddUp) {
  EXPECT_EQ(Entry(LOG_NEWLINE1, "T"), "T\r\n");
  EXPECT_EQ(Entry(LOG_NEWLINE2, "T"), "T\r\n\r\n");
  EXPECT_EQ(Entry(LOG_NEWLINE3, "T"), "T\r\n\r\n\r\n");
  EXPECT_EQ(Entry(0x1800, "T"), "T\r\n\r\n\r\n");
  EXPECT_EQ(Entry(0x3800, "T"), "T\r\n\r\n\r\n\r\n\r\n\r\n");
  EXPECT_EQ(Entry(0x0800, ""), "\r\n");
}

TEST_F(LogFileTest, AllPiecesInTheirOrder) {
  const std::string entry = Entry(0x08C1 | LOG_TIME | LOG_ELAPSED, "T");
  const std::regex expected(std::string("^\\t\\*{8} #{8} ") + kDateTime +
                            " - T \\(\\d+\\)\\*{8}#{8}\r\n$");
  EXPECT_TRUE(std::regex_match(entry, expected)) << entry;
}

TEST_F(LogFileTest, CallersTextIsReplacedByTheEntry) {
  std::string text = "T";
  log_.Write(LOG_INDENT1 | LOG_NEWLINE1, text);
  EXPECT_EQ(text, "\tT\r\n");
  EXPECT_EQ(Contents(), "\tT\r\n");
}

int FigureOf(const std::string& entry) {
  std::smatch match;
  EXPECT_TRUE(std::regex_search(entry, match, std::regex(" \\((-?\\d+)\\)$"))) << entry;
  return match.empty() ? -1 : std::stoi(match[1]);
}

TEST_F(LogFileTest, ElapsedFiguresGrowUntilRestarted) {
  const int first = FigureOf(Entry(LOG_ELAPSED, "a"));
  const int second = FigureOf(Entry(LOG_ELAPSED, "b"));
  EXPECT_GE(first, 0);
  EXPECT_GE(second, first);

  // Let the stopwatch run well past anything the next entries take.
  platform::Sleep(300);
  const uint32_t before = platform::ProcessClock();
  const int at_restart = FigureOf(Entry(LOG_ELAPSED | LOG_RESTART, "c"));
  const int after_restart = FigureOf(Entry(LOG_ELAPSED, "d"));
  const uint32_t after = platform::ProcessClock();
  EXPECT_GE(at_restart, 300);
  // Counted from the restart, so no more than the time these two entries took.
  EXPECT_LE(after_restart, static_cast<int>(after - before));
}

TEST_F(LogFileTest, ElapsedReadsAndRestartsTheStopwatch) {
  platform::Sleep(50);
  const int32_t running = log_.Elapsed(0);
  EXPECT_GE(running, 50);
  EXPECT_GE(log_.Elapsed(0), running);
  const uint32_t before = platform::ProcessClock();
  log_.Elapsed(1);
  const int32_t fresh = log_.Elapsed(0);
  EXPECT_LE(fresh, static_cast<int32_t>(platform::ProcessClock() - before));
}

TEST_F(LogFileTest, FormattedTextOfAnyLength) {
  const std::string big(20000, 'x');
  log_.WriteFormat(LOG_NEWLINE1, "%s|%d|%u|%s", big.c_str(), -7, 42u, "end");
  EXPECT_EQ(Contents(), big + "|-7|42|end\r\n");

  std::filesystem::remove(path_);
  log_.WriteFormat(LOG_NEWLINE1, "%s", "");
  EXPECT_EQ(Contents(), "\r\n");
}

TEST_F(LogFileTest, UniqueNameIsSecondsThenUnpaddedMilliseconds) {
  const int64_t low = platform::CalendarSeconds();
  const std::string name = CLogFile::MakeUniqueName();
  const int64_t high = platform::CalendarSeconds();
  ASSERT_TRUE(std::regex_match(name, std::regex("\\d+"))) << name;

  bool matched = false;
  for (int64_t seconds = low; seconds <= high; ++seconds) {
    const std::string prefix = std::to_string(seconds);
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string milliseconds = name.substr(prefix.size());
    matched = std::regex_match(milliseconds, std::regex("0|[1-9]\\d{0,2}"));
    if (matched) break;
  }
  EXPECT_TRUE(matched) << name << " against " << low << ".." << high;
}

TEST_F(LogFileTest, StartUpNameLivesInTmp) {
  const CLogFile fresh;
  EXPECT_TRUE(std::regex_match(fresh.GetPath(), std::regex("/tmp/\\d+\\.log"))) << fresh.GetPath();
}

TEST_F(LogFileTest, DateIsTodayAsEightDigits) {
  const platform::LocalTime before = platform::LocalNow();
  const std::string date = CLogFile::GetDate();
  const platform::LocalTime after = platform::LocalNow();
  auto text = [](const platform::LocalTime& t) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%04d%02d%02d", t.year, t.month, t.day);
    return std::string(buffer);
  };
  EXPECT_TRUE(date == text(before) || date == text(after)) << date;
  EXPECT_TRUE(std::regex_match(date, std::regex("\\d{8}")));
}

TEST_F(LogFileTest, MissingDirectoryIsReportedAndNothingIsCreated) {
  const std::string missing = dir_.File("no_such_dir/20030307.log");
  log_.SetPath(missing);
  try {
    log_.Write(LOG_NEWLINE1, "T");
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_TRUE(message == "Error in log file for: 'SRV1', file name: '" + missing + "', cause: '3'" ||
                message == "Error in log file for: 'SRV1', file name: '" + missing + "', cause: '2'")
        << message;
    EXPECT_EQ(log_.GetLastError(), message);
  }
  EXPECT_THROW(log_.WriteHeader(), std::string);
  EXPECT_FALSE(std::filesystem::exists(missing));
  EXPECT_FALSE(std::filesystem::exists(dir_.File("no_such_dir")));
}

TEST_F(LogFileTest, FileHeldByAnotherWriterFailsAtOnceWithSharingViolation) {
  log_.Write(0, "before|");
  {
    int cause = -1;
    std::unique_ptr<platform::File> holder =
        platform::File::Open(path_, platform::File::Mode::kAppendExclusive, &cause);
    ASSERT_TRUE(holder) << cause;
    try {
      log_.Write(LOG_NEWLINE1, "blocked");
      ADD_FAILURE() << "no exception";
    } catch (const std::string& message) {
      EXPECT_EQ(message, "Error in log file for: 'SRV1', file name: '" + path_ + "', cause: '11'");
    }
  }
  // Usable again once the holder is gone; the failed entry left no trace.
  log_.Write(0, "after");
  EXPECT_EQ(Contents(), "before|after");
  EXPECT_EQ(log_.GetLastError(),
            "Error in log file for: 'SRV1', file name: '" + path_ + "', cause: '11'");
}

TEST_F(LogFileTest, InjectedDiskFullAndAccessDenied) {
  log_.Write(0, "start|");
  platform::testing::InjectFileFault(path_, platform::testing::FileOp::kWrite,
                                     platform::testing::FileFault::kDiskFull);
  try {
    log_.WriteHeader();
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "Error in log file for: 'SRV1', file name: '" + path_ + "', cause: '13'");
  }

  log_.SetDescription("SRV2");
  platform::testing::InjectFileFault(path_, platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kAccessDenied);
  try {
    log_.Write(LOG_NEWLINE1, "denied");
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "Error in log file for: 'SRV2', file name: '" + path_ + "', cause: '5'");
  }

  log_.Write(0, "end");
  EXPECT_EQ(Contents(), "start|end");
}

}  // namespace
