// CRfcList: growth by ten, SetAtGrow's exact sizing, GetAt's bounds, and a
// failed growth that keeps the storage and its entries.

#include "rfc/core/rfc_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rfc/core/rfc_allocation.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

// The list stores pointers only; the entries are these numbers.
int g_items[32];

void Fill(CRfcList<int>& list, int from, int to) {
  for (int i = from; i < to; ++i) list.Add(&g_items[i]);
}

void ExpectEntries(const CRfcList<int>& list, int count) {
  ASSERT_EQ(list.GetCount(), count);
  for (int i = 0; i < count; ++i) EXPECT_EQ(list.GetAt(i), &g_items[i]) << i;
}

TEST(RfcList, AddGrowsByTenAndGetAtIsBounded) {
  CRfcList<int> list;
  EXPECT_EQ(list.GetMaxSize(), 0);
  EXPECT_EQ(list.GetAt(0), nullptr);
  Fill(list, 0, 10);
  EXPECT_EQ(list.GetMaxSize(), 10);
  Fill(list, 10, 11);  // the 11th entry
  EXPECT_EQ(list.GetMaxSize(), 20);
  ExpectEntries(list, 11);
  EXPECT_EQ(list.GetAt(-1), nullptr);
  EXPECT_EQ(list.GetAt(11), nullptr);  // inside the storage, beyond the count

  // InitList makes fresh null storage and keeps the count.
  list.InitList(0);
  EXPECT_EQ(list.GetMaxSize(), 0);
  EXPECT_EQ(list.GetAt(0), nullptr);
  list.Add(&g_items[11]);
  EXPECT_EQ(list.GetMaxSize(), 21);
  EXPECT_EQ(list.GetAt(11), &g_items[11]);
}

TEST(RfcList, SetAtGrowSizesTheStorageToTheIndex) {
  CRfcList<int> list;
  list.SetAtGrow(2, &g_items[2]);
  EXPECT_EQ(list.GetMaxSize(), 3);
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.GetAt(1), nullptr);
  list.SetAtGrow(0, &g_items[0]);  // inside the count: the storage stays
  EXPECT_EQ(list.GetMaxSize(), 3);
  list.SetAtGrow(5, &g_items[5]);
  EXPECT_EQ(list.GetMaxSize(), 6);
  EXPECT_EQ(list.GetAt(2), &g_items[2]);
  list.SetAtGrow(-1, &g_items[1]);  // ignored
  EXPECT_EQ(list.GetCount(), 6);

  CRfcList<int> larger;
  Fill(larger, 0, 1);  // storage of 10, remade with exactly 4 entries
  larger.SetAtGrow(3, &g_items[3]);
  EXPECT_EQ(larger.GetMaxSize(), 4);
  EXPECT_EQ(larger.GetAt(0), &g_items[0]);
}

TEST(RfcList, AFailedGrowthIsReportedAndKeepsTheEntries) {
  struct Case {
    const char* what;
    void (*grow)(CRfcList<int>&);
  };
  const Case cases[] = {
      {"Add", [](CRfcList<int>& list) { list.Add(&g_items[10]); }},
      {"SetAtGrow", [](CRfcList<int>& list) { list.SetAtGrow(15, &g_items[15]); }},
      {"InitList", [](CRfcList<int>& list) { list.InitList(30); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CRfcList<int> list;
    Fill(list, 0, 10);
    auto run = rfc_test::RunTraced([&] {
      rfc::testing::FailNextAllocation();
      c.grow(list);
    });
    EXPECT_EQ(run.thrown, "Failed to allocate memory!");
    EXPECT_THAT(run.lines, ::testing::ElementsAre(
                               "", "", "", ::testing::StartsWith("Rfc Class Library Trace at   "),
                               "CRfcList<ObjType>::InitList (int nMaxSize) called",
                               "Memory Allocation Failure"));
    EXPECT_EQ(list.GetMaxSize(), 10);
    ExpectEntries(list, 10);
    Fill(list, 10, 11);  // and it goes on growing afterwards
    ExpectEntries(list, 11);
  }
}

}  // namespace
