// The worker's pieces that its cycles cannot show on their own: the library
// error as the log writes it, the notices of a failing log, the idle pause,
// the logon choice and the decimal reading of a setting. Each input writes one
// line "input -> output"; the lines are compared whole with an expected file.

#include "app/worker.h"

#include <gtest/gtest.h>

#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>

#include "app/decimal_text.h"
#include "app/globals.h"
#include "app/log_failure_notice.h"
#include "tests/support/expected_file.h"

namespace {

// A clock the test moves; it starts just below the 32-bit wrap.
uint32_t g_now = 0;
constexpr uint32_t kStart = 0xFFFFFFFFu - 30000;

TEST(WorkerTest, PiecesOfTheCycleAsOneApprovedText) {
  std::string text = "== library error, each field read only to its end\n";
  RFC_ERROR_INFO error{};
  std::strcpy(error.key, "RFC_ERROR_LOGON_FAILURE");
  std::strcpy(error.status, "CONNECT to SAP gateway failed");
  std::strcpy(error.message, "Name or password is incorrect");
  text += DescribeRfcError(error) + "\n";
  std::memset(&error, 'X', sizeof error);  // no terminator anywhere
  text += DescribeRfcError(error) + "\n";

  // Told once, then at most once a minute, across the wrap of the clock.
  text += "== log failure notices (ms after the start: failed or recovered -> line)\n";
  CLogFailureNotice notice([] { return g_now; });
  const std::pair<uint32_t, bool> steps[] = {{0, true},      {1, true},      {59999, true}, {60000, true},
                                             {60001, true},  {60002, false}, {60003, false}, {60004, true}};
  for (const auto& [at, fails] : steps) {
    g_now = kStart + at;
    text += std::to_string(at) + (fails ? " failed -> " : " recovered -> ");
    text += fails ? notice.Failed("I", "E", "X") : notice.Recovered("I");
    text += "\n";
  }
  // A thousand cycles a second for ten minutes.
  int lines = 0;
  for (int cycle = 1; cycle <= 600000; ++cycle) {
    g_now = kStart + 60004 + static_cast<uint32_t>(cycle);
    if (!notice.Failed("I", "E", "X").empty()) ++lines;
  }
  text += "lines told in ten minutes -> " + std::to_string(lines) + "\n== current exception\n";

  for (const std::exception_ptr& raised :
       {std::make_exception_ptr("a text"), std::make_exception_ptr(static_cast<const char*>(nullptr)),
        std::make_exception_ptr(std::string("a string")), std::make_exception_ptr(std::bad_alloc()),
        std::make_exception_ptr(std::runtime_error("a runtime error")), std::make_exception_ptr(7)}) {
    try {
      std::rethrow_exception(raised);
    } catch (...) {
      text += DescribeCurrentException() + "\n";
    }
  }

  text += "== listen timer -> idle pause\n";
  for (const char* timer : {"250", "abc", "", " 10ms", "-5", "-1", "2147483647", "99999999999"}) {
    ProcessSettings().Set(CSettings::kListenTimer, timer);
    text += "'" + std::string(timer) + "' -> " + std::to_string(IdlePauseMs()) + "\n";
  }
  text += "== load balancing -> logon through the message server\n";
  for (const char* setting : {"Yes", "yes", "YES", "Yes ", " Yes", "", "1", "true"}) {
    ProcessSettings().Set(CSettings::kLoadBalancing, setting);
    text += "'" + std::string(setting) + "' -> " + std::to_string(LogonThroughMessageServer()) + "\n";
  }
  ProcessSettings() = CSettings();

  // Leading digits after white space and sign, clamped to the range; none give 0.
  text += "== decimal text\n";
  for (const char* decimal : {"250", "  250", "\t\r\n 7", "250ms", "00", "08", "-5", "+12", "1 2", "\v\f 3", "", "abc",
                              "   ", "-", "- 5", "x250", "2147483647", "2147483648", "-2147483648", "-2147483649",
                              "99999999999999999999999999999999", "-99999999999999999999999999999999"}) {
    text += "'" + std::string(decimal) + "' -> " + std::to_string(DecimalTextToInt(decimal)) + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/app/expected/worker.txt"));
}

}  // namespace
