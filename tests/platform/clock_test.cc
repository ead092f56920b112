// The process clock counts elapsed milliseconds from the process start, and
// sleeps last at least as asked.

#include "platform/clock.h"

#include <chrono>

#include "gtest/gtest.h"
#include "tests/platform/helper.h"

namespace {

TEST(ClockTest, ProcessClockCountsElapsedTimeFromTheProcessStart) {
  // A fresh process reads a small number: not time since boot.
  const auto result = platform_test::Run({"process-clock"});
  ASSERT_EQ(result.exit_code, 0);
  EXPECT_LT(std::stoul(result.out), 60000ul);
  // Sleeping uses no processor time, but the clock moves on.
  for (uint32_t ms : {0u, 1u, 30u}) {
    const auto start = std::chrono::steady_clock::now();
    const uint32_t first = platform::ProcessClock();
    platform::Sleep(ms);
    EXPECT_GE(platform::ProcessClock() - first, ms);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(ms));
  }
}

}  // namespace
