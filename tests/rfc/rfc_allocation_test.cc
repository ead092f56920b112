// The allocation failures of the class library: the planned-failure seam
// itself, and every reported out-of-memory path with its trace lines.

#include "rfc/core/rfc_allocation.h"

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_string.h"
#include "tests/rfc/trace_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using rfc_test::RunTraced;

constexpr const char kNoMemory[] = "Failed to allocate memory!";
const char* const kHeader = "Rfc Class Library Trace at   .*";

class RfcAllocationTest : public ::testing::Test {
 protected:
  void TearDown() override { rfc::testing::ClearAllocationFaults(); }
};

TEST_F(RfcAllocationTest, PlanSkipsThenFailsThenRecovers) {
  rfc::testing::FailAllocations(2, 2);
  EXPECT_EQ(rfc::testing::PendingAllocationFaults(), 2);
  EXPECT_NE(rfc::RfcAllocateArray<char>(4), nullptr);
  EXPECT_NE(rfc::RfcAllocate<int>(5), nullptr);
  EXPECT_EQ(rfc::RfcAllocateArray<char>(4), nullptr);
  EXPECT_EQ(rfc::testing::PendingAllocationFaults(), 1);
  EXPECT_EQ(rfc::RfcAllocate<int>(5), nullptr);
  EXPECT_EQ(rfc::testing::PendingAllocationFaults(), 0);
  auto recovered = rfc::RfcAllocate<int>(5);
  ASSERT_NE(recovered, nullptr);
  EXPECT_EQ(*recovered, 5);
}

TEST_F(RfcAllocationTest, ClearDropsThePlan) {
  rfc::testing::FailNextAllocation();
  rfc::testing::ClearAllocationFaults();
  EXPECT_NE(rfc::RfcAllocateArray<int>(3), nullptr);
  auto zeroed = rfc::RfcAllocateArray<int>(3);
  EXPECT_EQ(zeroed[0] + zeroed[1] + zeroed[2], 0);  // value-initialised
}

TEST_F(RfcAllocationTest, StringBufferFailureIsTracedAndThrown) {
  auto run = RunTraced([] {
    CRfcString s("keep");
    rfc::testing::FailNextAllocation();
    try {
      s.InitBuffer(10);
    } catch (...) {
      EXPECT_EQ(static_cast<const char*>(s), nullptr);  // left without buffer
      EXPECT_EQ(s.GetCapacity(), -1);
      throw;
    }
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, kNoMemory);
  EXPECT_THAT(run.lines, ElementsAre("", "", "", MatchesRegex(kHeader),
                                     "CRfcString::InitBuffer  called", kNoMemory));
}

TEST_F(RfcAllocationTest, EveryStringAllocationReportsThroughInitBuffer) {
  const std::vector<std::function<void()>> cases = {
      [] { CRfcString s("abc"); },
      [] { CRfcString s("abc", 30); },
      [] {
        CRfcString s("abc");
        rfc::testing::FailNextAllocation();
        CRfcString copy(s);
      },
      [] {
        CRfcString s("abc");
        CRfcString t("defg");
        rfc::testing::FailNextAllocation();
        t = s;
      },
      [] {
        CRfcString s("abc");
        rfc::testing::FailNextAllocation();
        s = "xyz";
      },
      [] {
        CRfcString s("abc");
        rfc::testing::FailNextAllocation();
        s += "xyz";
      },
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    auto run = RunTraced([&] {
      if (i < 2) rfc::testing::FailNextAllocation();
      cases[i]();
    });
    EXPECT_EQ(run.thrown, kNoMemory) << "case " << i;
    EXPECT_THAT(run.lines, ElementsAre("", "", "", MatchesRegex(kHeader),
                                       "CRfcString::InitBuffer  called", kNoMemory))
        << "case " << i;
  }
}

TEST_F(RfcAllocationTest, FailedAssignmentAndAppendLeaveNoBuffer) {
  CRfcString s("abc");
  rfc::testing::FailNextAllocation();
  EXPECT_THROW(s = "xyz", const char*);
  EXPECT_EQ(static_cast<const char*>(s), nullptr);
  CRfcString t("abc");
  rfc::testing::FailNextAllocation();
  EXPECT_THROW(t += "x", const char*);
  EXPECT_EQ(t.GetLength(), -1);
  t = "again";  // usable after a new assignment
  EXPECT_STREQ(static_cast<const char*>(t), "again");
}

TEST_F(RfcAllocationTest, MidFailureLeavesTheTarget) {
  CRfcString s("abcdef");
  CRfcString target("old");
  auto run = RunTraced([&] {
    rfc::testing::FailNextAllocation();
    s.Mid(target, 1, 2);
  });
  EXPECT_EQ(run.thrown, kNoMemory);
  EXPECT_THAT(run.lines, ElementsAre("", "", "", MatchesRegex(kHeader),
                                     "CRfcString::InitBuffer  called", kNoMemory));
  EXPECT_STREQ(static_cast<const char*>(target), "old");
}

TEST_F(RfcAllocationTest, TextConversionFailure) {
  unsigned char bytes[2] = {0x01, 0x2C};
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, 2, 0);
  auto run = RunTraced([&] {
    rfc::testing::FailNextAllocation();
    static_cast<void>(static_cast<CSTR>(data));
  });
  EXPECT_EQ(run.thrown, kNoMemory);
  EXPECT_THAT(run.lines, ElementsAre("", "", "", MatchesRegex(kHeader),
                                     "CRfcData::operator CSTR(void) called",
                                     "CRfcData: Conversion to PACK type (BCD) failed", kNoMemory));
  EXPECT_STREQ(static_cast<CSTR>(data), "12");  // works again afterwards
}

}  // namespace
