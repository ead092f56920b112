// Allocation failures of the core classes, reached through the planned
// failures of rfc_allocation.h: the plan itself, every string allocation
// (reported as InitBuffer's) and the text conversion of a value.

#include "rfc/core/rfc_allocation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_string.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

constexpr const char kNoMemory[] = "Failed to allocate memory!";
const auto kHeader = StartsWith("Rfc Class Library Trace at   ");

class RfcAllocationTest : public ::testing::Test {
 protected:
  void TearDown() override { rfc::testing::ClearAllocationFaults(); }
};

TEST_F(RfcAllocationTest, PlanSkipsThenFailsThenRecovers) {
  rfc::testing::FailAllocations(2, 2);
  EXPECT_NE(rfc::RfcAllocateArray<char>(4), nullptr);
  EXPECT_NE(rfc::RfcAllocate<int>(5), nullptr);
  EXPECT_EQ(rfc::RfcAllocateArray<char>(4), nullptr);
  EXPECT_EQ(rfc::testing::PendingAllocationFaults(), 1);
  EXPECT_EQ(rfc::RfcAllocate<int>(5), nullptr);
  auto recovered = rfc::RfcAllocateArray<int>(3);
  ASSERT_NE(recovered, nullptr);
  EXPECT_EQ(recovered[0] + recovered[1] + recovered[2], 0);  // value-initialised

  rfc::testing::FailNextAllocation();
  rfc::testing::ClearAllocationFaults();
  EXPECT_NE(rfc::RfcAllocate<int>(1), nullptr);
  rfc::testing::FailAllocations(0, 0);  // a plan that fails nothing
  EXPECT_NE(rfc::RfcAllocate<int>(1), nullptr);
}

TEST_F(RfcAllocationTest, EveryStringAllocationReportsAsInitBuffer) {
  struct Case {
    const char* what;
    void (*run)(CRfcString& s, const CRfcString& other);  // one allocation, the failing one
    bool keeps_buffer;  // the allocation comes before any change to `s`
  };
  const Case cases[] = {
      {"construction", [](CRfcString& s, const CRfcString&) { s = CRfcString("abc"); }, true},
      {"construction with capacity",
       [](CRfcString& s, const CRfcString&) { s = CRfcString("abc", 30); }, true},
      {"copy", [](CRfcString& s, const CRfcString&) { CRfcString copy(s); }, true},
      {"Mid", [](CRfcString& s, const CRfcString& other) { other.Mid(s, 1, 2); }, true},
      {"assignment", [](CRfcString& s, const CRfcString& other) { s = other; }, false},
      {"text assignment", [](CRfcString& s, const CRfcString&) { s = "xyz"; }, false},
      {"append", [](CRfcString& s, const CRfcString&) { s += "xyz"; }, false},
      {"InitBuffer", [](CRfcString& s, const CRfcString&) { s.InitBuffer(10); }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CRfcString s("keep");
    const CRfcString other("other");
    rfc_test::ExpectTracedFailure(
        [&] {
          rfc::testing::FailNextAllocation();
          c.run(s, other);
        },
        "CRfcString::InitBuffer  called", kNoMemory);
    if (c.keeps_buffer) {
      EXPECT_STREQ(static_cast<const char*>(s), "keep");
    } else {
      EXPECT_EQ(static_cast<const char*>(s), nullptr);
      EXPECT_EQ(s.GetCapacity(), -1);
    }
    s = "again";  // usable after a new assignment
    EXPECT_STREQ(static_cast<const char*>(s), "again");
  }
}

TEST_F(RfcAllocationTest, TextConversionOfAValue) {
  unsigned char bytes[2] = {0x01, 0x2C};
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, 2, 0);
  auto run = rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    static_cast<void>(static_cast<CSTR>(data));
  });
  EXPECT_EQ(run.thrown, kNoMemory);
  EXPECT_THAT(run.lines, ElementsAre("", "", "", kHeader, "CRfcData::operator CSTR(void) called",
                                     "CRfcData: Conversion to PACK type (BCD) failed", kNoMemory));
  EXPECT_STREQ(static_cast<CSTR>(data), "12");  // works again afterwards
}

}  // namespace
