// The class library's allocations while the worker serves a batch, failed one
// after the other: each failure costs that batch only (the dispatcher reports
// the text and the caller gets no BATCH_RC), the cycle goes on, and the next
// batch is served whole.

#include <gtest/gtest.h>

#include <string>

#include "rfc/core/rfc_allocation.h"
#include "tests/faults/worker_fixture.h"

namespace faults {
namespace {

using BatchAllocationTest = WorkerFixture;

TEST_F(BatchAllocationTest, EveryAllocationOfABatchCanFailWithoutEndingTheCycle) {
  StartSapsim();
  StartWorker();
  ASSERT_TRUE(WaitForServing()) << LogText();
  // The first batch builds the function's call arrays; from then on every
  // batch of the same shape makes the same allocations.
  ASSERT_EQ(Call(2, "W").out, "BATCH_RC=1\n");

  // The dispatcher reports each failure on standard output, before the
  // caller gets its answer.
  ::testing::internal::CaptureStdout();
  int index = 0;
  for (;; ++index) {
    ASSERT_LT(index, 1000) << "the batch never completes";
    const int received = Receipts();
    rfc::testing::FailAllocations(index, 1);
    const sapsim::testing::RunResult call = Call(2, "A" + std::to_string(index));
    const bool reached = rfc::testing::PendingAllocationFaults() == 0;
    rfc::testing::ClearAllocationFaults();
    if (!reached) {
      EXPECT_EQ(call.out, "BATCH_RC=1\n") << "allocation " << index << " was not reached: " << call.err;
      break;
    }
    EXPECT_NE(call.exit_code, 0) << "allocation " << index;
    EXPECT_EQ(call.out.find("BATCH_RC"), std::string::npos) << "allocation " << index << ": " << call.out;
    EXPECT_EQ(Receipts(), received) << "allocation " << index;
    const sapsim::testing::RunResult next = Call(2, "N" + std::to_string(index));
    EXPECT_EQ(next.out, "BATCH_RC=1\n") << "after allocation " << index << ": " << next.err;
  }
  const std::string reports = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(CountOf(reports, "\n Main Thread  Failed to allocate memory!"), index) << reports;
  EXPECT_GT(index, 0) << "a batch allocates nothing through the library's allocator";
  EXPECT_EQ(Cycles().size(), 1u) << LogText();
  EXPECT_EQ(Cycles().front().UnknownEntries() + Cycles().front().ErrorEntries(), 0);
  RecordProperty("allocations", index);
}

}  // namespace
}  // namespace faults
