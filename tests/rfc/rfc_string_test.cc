// CRfcString: construction trims and assignment does not, the upper-case
// flag, copies, the Append rule that reads the old text up to its
// terminator, the comparisons, Mid and the buffer step. CRfcList: growth by
// ten, SetAtGrow's exact sizing, GetAt's bounds, and a failed growth that
// keeps the storage and its entries.

#include "rfc/core/rfc_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_list.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

std::string Text(const CRfcString& s) {
  const char* text = s;
  return text != nullptr ? std::string(text) : std::string("<null>");
}

void ExpectString(const CRfcString& s, const std::string& text, int length, int capacity) {
  EXPECT_EQ(Text(s), text);
  EXPECT_EQ(s.GetLength(), length);
  EXPECT_EQ(s.GetCapacity(), capacity);
}

TEST(RfcString, ConstructionTrimsAndAssignmentKeepsTrailingBlanks) {
  ExpectString(CRfcString("ABC  "), "ABC", 3, 5);
  ExpectString(CRfcString("  a b "), "  a b", 5, 6);
  ExpectString(CRfcString(nullptr), "<null>", -1, -1);
  ExpectString(CRfcString(), "<null>", -1, -1);
  ExpectString(CRfcString("abc ", 30), "abc", 3, 30);  // names: at least 30
  ExpectString(CRfcString(nullptr, 30), "", 0, 30);
  ExpectString(CRfcString((std::string(40, 'X') + "  ").c_str(), 30), std::string(40, 'X'), 40, 40);

  CRfcString s("x");
  s = "ABC  ";
  ExpectString(s, "ABC  ", 5, 5);
  s = static_cast<const char*>(s) + 3;  // its own text
  ExpectString(s, "  ", 2, 2);
  s = static_cast<const char*>(nullptr);
  ExpectString(s, "<null>", -1, -1);
}

TEST(RfcString, UpperCaseFlagAndCopies) {
  CRfcString s("abc");
  s.SetUpperCase(1);
  s += "d";  // appending is no assignment
  EXPECT_EQ(Text(s), "abcd");
  s = "abc";
  EXPECT_EQ(Text(s), "ABC");
  CRfcString lower("rfc_read_table");
  lower.MakeUpper();
  EXPECT_EQ(Text(lower) + std::to_string(lower.GetUpperCase()), "RFC_READ_TABLE0");

  // Copies take flag, capacity and text.
  CRfcString source("Name   ", 20);
  source.SetUpperCase(1);
  CRfcString copy(source);
  ExpectString(copy, "Name", 4, 20);
  EXPECT_EQ(copy.GetUpperCase(), 1);
  CRfcString target("something longer");
  target = source;
  ExpectString(target, "Name", 4, 20);
  target = target;
  EXPECT_EQ(Text(target), "Name");
  target = CRfcString();
  ExpectString(target, "<null>", -1, -1);
  const CRfcString none;
  CRfcString copied_none(none), assigned("abc");
  assigned = none;
  EXPECT_EQ(copied_none.GetLength() + assigned.GetLength(), -2);
  CRfcString moved(std::move(copy));
  EXPECT_EQ(Text(moved), "Name");
  EXPECT_EQ(copy.GetLength(), -1);  // NOLINT(bugprone-use-after-move)
}

TEST(RfcString, AppendTakesTheOldTextUpToItsTerminator) {
  CRfcString read("ABC  ");
  EXPECT_EQ(Text(read), "ABC");  // reading writes the terminator at the length
  read += "X";
  ExpectString(read, "ABCX", 4, 6);
  // Not read: the blanks stay before the X, and the terminator at 4 cuts it.
  CRfcString unread("ABC  ");
  unread.Append("X");
  ExpectString(unread, "ABC ", 4, 6);
  CRfcString none;
  none += "ab";
  none += static_cast<const char*>(none);
  none += static_cast<const char*>(nullptr);
  ExpectString(none, "abab", 4, 4);
  // A fresh buffer is blank up to its capacity.
  CRfcString blank(nullptr, 4);
  blank += "Z";
  ExpectString(blank, " ", 1, 5);
}

TEST(RfcString, Comparisons) {
  CRfcString abc("ABC");
  CRfcString none;
  const char* null = nullptr;
  EXPECT_EQ(std::vector<bool>({abc == "ABC", abc == "AB", abc == null, none == null, none == ""}),
            std::vector<bool>({true, false, false, true, false}));
  EXPECT_EQ(abc.Compare(nullptr) * 100 + (none >= "a") * 10 + (abc >= null), 101);  // null reads as ""
  EXPECT_EQ(abc.Compare("ABC"), 0);
  EXPECT_EQ(abc.Compare("abc"), 1);
  EXPECT_EQ(none.Compare(nullptr), 1);  // a string without buffer is never equal

  struct Case {
    const char* left;
    const char* right;
    bool greater_or_equal;
  };
  for (const Case& c : {Case{"46C", "40A", true}, Case{"31I", "40A", false},
                        Case{"40A", "40A", true}, Case{"40AB", "40A", true},
                        Case{"40", "40A", false}, Case{"\xE4", "z", true},  // bytes are unsigned
                        Case{"z", "\xE4", false}}) {
    EXPECT_EQ(CRfcString(c.left) >= c.right, c.greater_or_equal) << c.left << " " << c.right;
  }
  EXPECT_EQ(std::vector<int>({CRfcString::TrimmedLength(nullptr), CRfcString::TrimmedLength("   "),
                              CRfcString::TrimmedLength("a b\t  ")}),
            std::vector<int>({-1, 0, 4}));  // only the blank counts
}

TEST(RfcString, MidCopiesATrimmedPieceWithinTheText) {
  CRfcString s("ABCDE  FG");
  CRfcString target("x");
  target.SetUpperCase(1);
  EXPECT_EQ(&s.Mid(target, 3, 4), &target);
  ExpectString(target, "DE", 2, 4);  // "DE  " trimmed by construction
  EXPECT_EQ(target.GetUpperCase(), 0);
  struct Case {
    int start, count;
    const char* piece;
  };
  for (const Case& c : {Case{7, 10, "FG"}, Case{-3, 2, "AB"}, Case{12, 2, ""}, Case{1, -1, ""}}) {
    s.Mid(target, c.start, c.count);
    EXPECT_EQ(Text(target), c.piece) << c.start << "," << c.count;
  }
  CRfcString none;
  none.Mid(target, 0, 1);  // a piece of nothing has no buffer
  EXPECT_EQ(Text(target), "<null>");
  s.Mid(s, 1, 3);  // the target may be the string itself
  EXPECT_EQ(Text(s), "BCD");
}

TEST(RfcString, BufferStepAndInPlaceChanges) {
  CRfcString s("abc");
  s.InitBuffer(6);
  ExpectString(s, "", 0, 5);
  s = "key";
  s.GetBuffer()[0] = 'K';
  ExpectString(s, "Key", 3, 3);
  s.InitBuffer(0);
  ExpectString(s, "<null>", -1, -1);
  EXPECT_EQ(s.GetBuffer(), nullptr);
}

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
  CRfcList<int> exact;
  exact.InitList(5);
  exact.SetAtGrow(4, &g_items[4]);  // the storage fits already
  EXPECT_EQ(exact.GetMaxSize() * 10 + exact.GetCount(), 55);
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
    rfc_test::ExpectTracedFailure(
        [&] {
          rfc::testing::FailNextAllocation();
          c.grow(list);
        },
        "CRfcList<ObjType>::InitList (int nMaxSize) called", "Memory Allocation Failure", "Failed to allocate memory!");
    EXPECT_EQ(list.GetMaxSize(), 10);
    ExpectEntries(list, 10);
    Fill(list, 10, 11);  // and it goes on growing afterwards
    ExpectEntries(list, 11);
  }
}

}  // namespace
