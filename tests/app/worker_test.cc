// The worker's pieces that its cycles cannot show on their own: the library
// error as the log writes it, the idle pause and the logon choice.

#include "app/worker.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "app/decimal_text.h"
#include "app/globals.h"
#include "app/log_failure_notice.h"
#include "app/settings.h"
#include "app/worker_status.h"

namespace {

TEST(WorkerTest, LibraryErrorIsDescribedFieldByFieldEachReadOnlyToItsEnd) {
  RFC_ERROR_INFO error{};
  std::strcpy(error.key, "RFC_ERROR_LOGON_FAILURE");
  std::strcpy(error.status, "CONNECT to SAP gateway failed");
  std::strcpy(error.message, "Name or password is incorrect");
  EXPECT_EQ(DescribeRfcError(error),
            "Key: RFC_ERROR_LOGON_FAILURE\nStatus: CONNECT to SAP gateway failed\n"
            "Message: Name or password is incorrect\nInitstate: ");
  std::memset(&error, 'X', sizeof error);  // no terminator anywhere
  EXPECT_EQ(DescribeRfcError(error), "Key: " + std::string(33, 'X') + "\nStatus: " + std::string(128, 'X') +
                                         "\nMessage: " + std::string(256, 'X') + "\nInitstate: " +
                                         std::string(128, 'X'));
}

// A clock the test moves; it starts just below the 32-bit wrap.
uint32_t g_now = 0;

TEST(WorkerTest, LogFailuresReachStandardErrorOnceAndThenAtMostOnceAMinute) {
  CLogFailureNotice notice([] { return g_now; });
  const uint32_t t0 = 0xFFFFFFFFu - 30000;
  const std::string first = "batchserver I: E; not logged: X\n";
  struct Step {
    uint32_t at;
    bool fails;
    std::string line;
  };
  const Step steps[] = {
      {t0, true, first},
      {t0 + 1, true, ""},
      {t0 + 59999, true, ""},
      {t0 + 60000, true, "batchserver I: still failing, 3 cycles since the last report: E; not logged: X\n"},
      {t0 + 60001, true, ""},
      {t0 + 60002, false, "batchserver I: the log is written again, 1 failed cycles since the last report\n"},
      {t0 + 60003, false, ""},
      {t0 + 60004, true, first},  // a new failure is told at once
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.at - t0);
    g_now = step.at;
    EXPECT_EQ(step.fails ? notice.Failed("I", "E", "X") : notice.Recovered("I"), step.line);
  }
  // A thousand cycles a second for ten minutes: ten lines.
  int lines = 0;
  for (int cycle = 1; cycle <= 600000; ++cycle) {
    g_now = t0 + 60004 + static_cast<uint32_t>(cycle);
    if (!notice.Failed("I", "E", "X").empty()) ++lines;
  }
  EXPECT_EQ(lines, 10);
}

TEST(WorkerTest, CurrentExceptionIsDescribedByItsKind) {
  const std::pair<void (*)(), const char*> cases[] = {
      {[] { throw "a text"; }, "a text"},
      {[] { throw static_cast<const char*>(nullptr); }, "(no text)"},
      {[] { throw std::string("a string"); }, "a string"},
      {[] { throw std::bad_alloc(); }, "out of memory"},
      {[] { throw std::runtime_error("a runtime error"); }, "a runtime error"},
      {[] { throw 7; }, "an exception of unknown kind"},
  };
  for (const auto& [raise, text] : cases) {
    try {
      raise();
    } catch (...) {
      EXPECT_EQ(DescribeCurrentException(), text);
    }
  }
}

TEST(WorkerTest, IdlePauseIsTheListenTimerPlusOneAndOnlyAnExactYesBalancesTheLoad) {
  const struct {
    const char* timer;
    uint32_t pause;
  } cases[] = {
      {"250", 251}, {"abc", 1}, {"", 1}, {" 10ms", 11}, {"-5", 0}, {"-1", 0},
      {"2147483647", 2147483648u}, {"99999999999", 2147483648u},
  };
  for (const auto& c : cases) {
    ProcessSettings().Set(CSettings::kListenTimer, c.timer);
    EXPECT_EQ(IdlePauseMs(), c.pause) << "timer '" << c.timer << "'";
  }
  ProcessSettings().Set(CSettings::kLoadBalancing, "Yes");
  EXPECT_TRUE(LogonThroughMessageServer());
  for (const char* other : {"yes", "YES", "Yes ", " Yes", "", "1", "true"}) {
    ProcessSettings().Set(CSettings::kLoadBalancing, other);
    EXPECT_FALSE(LogonThroughMessageServer()) << "'" << other << "'";
  }
  ProcessSettings() = CSettings();
}

TEST(DecimalTextTest, ReadsLeadingDigitsAfterWhiteSpaceAndSignClampedToTheRange) {
  const struct {
    const char* text;
    int value;
  } cases[] = {
      {"250", 250}, {"  250", 250}, {"\t\r\n 7", 7}, {"250ms", 250}, {"00", 0}, {"08", 8}, {"-5", -5},
      {"+12", 12}, {"1 2", 1}, {"\v\f 3", 3},
      // No digits give 0.
      {"", 0}, {"abc", 0}, {"   ", 0}, {"-", 0}, {"- 5", 0}, {"x250", 0},
      {"2147483647", INT_MAX}, {"2147483648", INT_MAX}, {"-2147483648", INT_MIN}, {"-2147483649", INT_MIN},
      {"99999999999999999999999999999999", INT_MAX}, {"-99999999999999999999999999999999", INT_MIN},
  };
  for (const auto& c : cases) EXPECT_EQ(DecimalTextToInt(c.text), c.value) << "'" << c.text << "'";
}

}  // namespace
