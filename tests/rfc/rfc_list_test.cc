// CRfcList: growth by ten, SetAtGrow's exact sizing, bounds of GetAt, and
// that the list frees its storage but never its objects.

#include "rfc/core/rfc_list.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Item {
  explicit Item(int v) : value(v) {}
  int value;
};

class RfcListTest : public ::testing::Test {
 protected:
  Item* Make(int value) {
    items_.push_back(std::make_unique<Item>(value));
    return items_.back().get();
  }
  std::vector<std::unique_ptr<Item>> items_;
};

TEST_F(RfcListTest, StartsEmptyWithoutStorage) {
  CRfcList<Item> list;
  EXPECT_EQ(list.GetCount(), 0);
  EXPECT_EQ(list.GetMaxSize(), 0);
  EXPECT_EQ(list.GetAt(0), nullptr);
}

TEST_F(RfcListTest, GrowsByTenEntries) {
  CRfcList<Item> list;
  list.Add(Make(0));
  EXPECT_EQ(list.GetMaxSize(), 10);
  for (int i = 1; i < 10; ++i) list.Add(Make(i));
  EXPECT_EQ(list.GetMaxSize(), 10);
  list.Add(Make(10));  // the 11th entry
  EXPECT_EQ(list.GetMaxSize(), 20);
  EXPECT_EQ(list.GetCount(), 11);
  for (int i = 0; i < 11; ++i) {
    ASSERT_NE(list.GetAt(i), nullptr);
    EXPECT_EQ(list.GetAt(i)->value, i);
  }
  for (int i = 11; i < 21; ++i) list.Add(Make(i));
  EXPECT_EQ(list.GetMaxSize(), 30);
}

TEST_F(RfcListTest, GetAtOutsideTheCountIsNull) {
  CRfcList<Item> list;
  list.Add(Make(1));
  list.Add(Make(2));
  EXPECT_EQ(list.GetAt(-1), nullptr);
  EXPECT_EQ(list.GetAt(list.GetCount()), nullptr);
  EXPECT_EQ(list.GetAt(9), nullptr);  // within the storage, beyond the count
  EXPECT_EQ(list.GetAt(1)->value, 2);
}

TEST_F(RfcListTest, InitListMakesNullEntriesAndKeepsTheCount) {
  CRfcList<Item> list;
  list.InitList(5);
  EXPECT_EQ(list.GetMaxSize(), 5);
  EXPECT_EQ(list.GetCount(), 0);
  for (int i = 0; i < 5; ++i) list.Add(Make(i));
  EXPECT_EQ(list.GetMaxSize(), 5);
  list.Add(Make(5));
  EXPECT_EQ(list.GetMaxSize(), 15);
  list.InitList(0);
  EXPECT_EQ(list.GetMaxSize(), 0);
  EXPECT_EQ(list.GetCount(), 6);
  EXPECT_EQ(list.GetAt(0), nullptr);  // no storage behind the count
  list.Add(Make(6));                  // still safe to use
  EXPECT_EQ(list.GetAt(6)->value, 6);
}

TEST_F(RfcListTest, SetAtGrowSizesExactlyToTheIndex) {
  CRfcList<Item> list;
  list.SetAtGrow(2, Make(2));
  EXPECT_EQ(list.GetMaxSize(), 3);
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.GetAt(0), nullptr);
  EXPECT_EQ(list.GetAt(1), nullptr);
  EXPECT_EQ(list.GetAt(2)->value, 2);

  list.SetAtGrow(0, Make(0));  // inside the count: no change of storage
  EXPECT_EQ(list.GetMaxSize(), 3);
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.GetAt(0)->value, 0);

  list.SetAtGrow(5, Make(5));
  EXPECT_EQ(list.GetMaxSize(), 6);
  EXPECT_EQ(list.GetCount(), 6);
  EXPECT_EQ(list.GetAt(0)->value, 0);
  EXPECT_EQ(list.GetAt(2)->value, 2);
  EXPECT_EQ(list.GetAt(4), nullptr);
}

TEST_F(RfcListTest, SetAtGrowShrinksLargerStorageToExactSize) {
  CRfcList<Item> list;
  list.Add(Make(0));  // storage of 10
  list.SetAtGrow(3, Make(3));
  EXPECT_EQ(list.GetMaxSize(), 4);
  EXPECT_EQ(list.GetAt(0)->value, 0);
  EXPECT_EQ(list.GetAt(3)->value, 3);
  list.SetAtGrow(3, Make(33));  // overwrites; the earlier object is the caller's
  EXPECT_EQ(list.GetAt(3)->value, 33);
  EXPECT_EQ(list.GetCount(), 4);
}

TEST_F(RfcListTest, SetAtGrowAtTheExactSizeKeepsTheStorage) {
  CRfcList<Item> list;
  list.InitList(4);
  list.SetAtGrow(3, Make(3));
  EXPECT_EQ(list.GetMaxSize(), 4);
  EXPECT_EQ(list.GetCount(), 4);
  list.SetAtGrow(-1, Make(-1));  // ignored
  EXPECT_EQ(list.GetCount(), 4);
}

TEST_F(RfcListTest, DestroyingTheListLeavesTheObjects) {
  auto list = std::make_unique<CRfcList<Item>>();
  Item* item = Make(7);
  list->Add(item);
  list.reset();
  EXPECT_EQ(item->value, 7);  // still alive, owned by the fixture
}

}  // namespace
