// CRfcString: trimming, blank-filled buffers, the upper-case flag, the
// comparisons and the Append rule that reads the old text up to its
// terminator.

#include "rfc/core/rfc_string.h"

#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

std::string Text(const CRfcString& s) {
  const char* text = s;
  return text != nullptr ? std::string(text) : std::string("<null>");
}

TEST(RfcStringConstruction, TrimsTrailingBlanksButKeepsTheCapacity) {
  CRfcString s("ABC  ");
  EXPECT_EQ(Text(s), "ABC");
  EXPECT_EQ(s.GetLength(), 3);
  EXPECT_EQ(s.GetCapacity(), 5);
  EXPECT_EQ(s.GetUpperCase(), 0);
}

TEST(RfcStringConstruction, KeepsLeadingBlanksAndLowerCase) {
  CRfcString s("  abc d ");
  EXPECT_EQ(Text(s), "  abc d");
  EXPECT_EQ(s.GetCapacity(), 8);
}

TEST(RfcStringConstruction, NullGivesAStringWithoutBuffer) {
  CRfcString s(nullptr);
  EXPECT_EQ(static_cast<const char*>(s), nullptr);
  EXPECT_EQ(s.GetLength(), -1);
  EXPECT_EQ(s.GetCapacity(), -1);
  CRfcString d;
  EXPECT_EQ(static_cast<const char*>(d), nullptr);
}

TEST(RfcStringConstruction, MinimumCapacityForNames) {
  CRfcString name("abc ", 30);
  EXPECT_EQ(Text(name), "abc");
  EXPECT_EQ(name.GetCapacity(), 30);
  CRfcString empty(nullptr, 30);
  EXPECT_EQ(Text(empty), "");
  EXPECT_EQ(empty.GetLength(), 0);
  EXPECT_EQ(empty.GetCapacity(), 30);
  const std::string long_name(40, 'X');
  CRfcString wide((long_name + "   ").c_str(), 30);
  EXPECT_EQ(wide.GetCapacity(), 40);
  EXPECT_EQ(Text(wide), long_name);
}

TEST(RfcStringAssignment, TextKeepsTrailingBlanks) {
  CRfcString s("x");
  s = "ABC  ";
  EXPECT_EQ(Text(s), "ABC  ");
  EXPECT_EQ(s.GetLength(), 5);
  EXPECT_EQ(s.GetCapacity(), 5);
}

TEST(RfcStringAssignment, UpperCaseFlagConvertsAssignedTextOnly) {
  CRfcString constructed("abc");
  EXPECT_EQ(Text(constructed), "abc");
  CRfcString s("");
  s.SetUpperCase(1);
  s = "abc";
  EXPECT_EQ(Text(s), "ABC");
  s += "def";  // appending is not an assignment
  EXPECT_EQ(Text(s), "ABCdef");
}

TEST(RfcStringAssignment, NullLeavesNoBuffer) {
  CRfcString s("abc");
  s = static_cast<const char*>(nullptr);
  EXPECT_EQ(static_cast<const char*>(s), nullptr);
  EXPECT_EQ(s.GetLength(), -1);
}

TEST(RfcStringAssignment, OwnTextCanBeAssignedBack) {
  CRfcString s("hello world");
  const char* inner = s;
  s = inner + 6;
  EXPECT_EQ(Text(s), "world");
  s = static_cast<const char*>(s);
  EXPECT_EQ(Text(s), "world");
}

TEST(RfcStringCopy, CopiesFlagCapacityAndText) {
  CRfcString source("Name   ", 20);
  source.SetUpperCase(1);
  CRfcString copy(source);
  EXPECT_EQ(Text(copy), "Name");
  EXPECT_EQ(copy.GetCapacity(), 20);
  EXPECT_EQ(copy.GetUpperCase(), 1);

  CRfcString target("something long enough");
  target = source;
  EXPECT_EQ(Text(target), "Name");
  EXPECT_EQ(target.GetCapacity(), 20);
  EXPECT_EQ(target.GetUpperCase(), 1);
  target = target;  // self-assignment changes nothing
  EXPECT_EQ(Text(target), "Name");

  CRfcString none;
  target = none;
  EXPECT_EQ(static_cast<const char*>(target), nullptr);
  CRfcString copy_of_none(none);
  EXPECT_EQ(static_cast<const char*>(copy_of_none), nullptr);
}

TEST(RfcStringCopy, MoveLeavesTheSourceWithoutBuffer) {
  CRfcString source("abc");
  CRfcString moved(std::move(source));
  EXPECT_EQ(Text(moved), "abc");
  EXPECT_EQ(source.GetLength(), -1);  // NOLINT(bugprone-use-after-move)
  CRfcString target;
  target = std::move(moved);
  EXPECT_EQ(Text(target), "abc");
}

TEST(RfcStringAppend, AfterReadingAppendsAtTheLength) {
  CRfcString s("ABC  ");
  EXPECT_EQ(Text(s), "ABC");  // reading writes the terminator at the length
  s += "X";
  EXPECT_EQ(Text(s), "ABCX");
  EXPECT_EQ(s.GetLength(), 4);
  EXPECT_EQ(s.GetCapacity(), 6);
}

TEST(RfcStringAppend, UnreadBlankPaddedTextCutsTheAppendedText) {
  // The old content is taken up to its terminator: the blanks of the padded
  // text stay, the X lands after them and the terminator at length 4 cuts it.
  CRfcString s("ABC  ");
  s.Append("X");
  EXPECT_EQ(s.GetLength(), 4);
  EXPECT_EQ(Text(s), "ABC ");
}

TEST(RfcStringAppend, ToAStringWithoutBufferStartsFromEmpty) {
  CRfcString s;
  s += "abc";
  EXPECT_EQ(Text(s), "abc");
  EXPECT_EQ(s.GetCapacity(), 3);
  s += static_cast<const char*>(nullptr);
  EXPECT_EQ(Text(s), "abc");
}

TEST(RfcStringAppend, OwnTextAppended) {
  CRfcString s("ab");
  EXPECT_EQ(Text(s), "ab");
  s += static_cast<const char*>(s);
  EXPECT_EQ(Text(s), "abab");
}

TEST(RfcStringCompare, EqualityAndCompare) {
  CRfcString s("ABC");
  EXPECT_TRUE(s == "ABC");
  EXPECT_FALSE(s == "ABCD");
  EXPECT_FALSE(s == "AB");
  EXPECT_FALSE(s == static_cast<const char*>(nullptr));
  EXPECT_EQ(s.Compare("ABC"), 0);
  EXPECT_EQ(s.Compare("abc"), 1);
  EXPECT_EQ(s.Compare(nullptr), 1);

  CRfcString none;
  EXPECT_TRUE(none == static_cast<const char*>(nullptr));
  EXPECT_FALSE(none == "");
  EXPECT_EQ(none.Compare(""), 1);
  EXPECT_EQ(none.Compare(nullptr), 1);  // a string without buffer is never equal
}

TEST(RfcStringCompare, GreaterOrEqualForReleases) {
  EXPECT_TRUE(CRfcString("46C") >= "40A");
  EXPECT_FALSE(CRfcString("31I") >= "40A");
  EXPECT_TRUE(CRfcString("40A") >= "40A");
  EXPECT_TRUE(CRfcString("40AB") >= "40A");
  EXPECT_FALSE(CRfcString("40") >= "40A");
  // Bytes compare unsigned: a high byte is greater than any ASCII one.
  EXPECT_TRUE(CRfcString("\xE4") >= "z");
  EXPECT_FALSE(CRfcString("z") >= "\xE4");
}

TEST(RfcStringUpper, MakeUpperConvertsInPlace) {
  CRfcString s("rfc_read_table");
  s.MakeUpper();
  EXPECT_EQ(Text(s), "RFC_READ_TABLE");
  EXPECT_EQ(s.GetUpperCase(), 0);  // the flag is separate
  CRfcString none;
  none.MakeUpper();
  EXPECT_EQ(static_cast<const char*>(none), nullptr);
}

TEST(RfcStringMid, CopiesAPieceAndTrimsIt) {
  CRfcString s("ABCDE  FG");
  CRfcString target;
  CRfcString& result = s.Mid(target, 3, 4);
  EXPECT_EQ(&result, &target);
  EXPECT_EQ(Text(target), "DE");  // "DE  " trimmed by construction
  EXPECT_EQ(target.GetCapacity(), 4);
}

TEST(RfcStringMid, ClampsItsRange) {
  CRfcString s("ABCDEF");
  CRfcString target("x");
  s.Mid(target, 4, 10);
  EXPECT_EQ(Text(target), "EF");
  s.Mid(target, -3, 2);
  EXPECT_EQ(Text(target), "AB");
  s.Mid(target, 9, 2);
  EXPECT_EQ(Text(target), "");
  s.Mid(target, 1, -1);
  EXPECT_EQ(Text(target), "");
  s.Mid(s, 1, 3);  // the target may be the string itself
  EXPECT_EQ(Text(s), "BCD");
}

TEST(RfcStringMid, TargetTakesTheNewStringsFlag) {
  CRfcString s("abc");
  CRfcString target;
  target.SetUpperCase(1);
  s.Mid(target, 0, 2);
  EXPECT_EQ(Text(target), "ab");
  EXPECT_EQ(target.GetUpperCase(), 0);
}

TEST(RfcStringTrim, TrimmedLength) {
  EXPECT_EQ(CRfcString::TrimmedLength(nullptr), -1);
  EXPECT_EQ(CRfcString::TrimmedLength("   "), 0);
  EXPECT_EQ(CRfcString::TrimmedLength(""), 0);
  EXPECT_EQ(CRfcString::TrimmedLength("a b  "), 3);
  EXPECT_EQ(CRfcString::TrimmedLength("ab\t"), 3);  // only the blank counts
}

TEST(RfcStringBuffer, InitBufferBlankFillsAndTerminates) {
  CRfcString s("abc");
  s.InitBuffer(6);
  EXPECT_EQ(s.GetCapacity(), 5);
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_EQ(Text(s), "");
  s.InitBuffer(0);
  EXPECT_EQ(s.GetCapacity(), -1);
  EXPECT_EQ(s.GetLength(), -1);
  EXPECT_EQ(static_cast<const char*>(s), nullptr);
}

TEST(RfcStringBuffer, FreshBufferIsBlankUpToTheCapacity) {
  // A blank-padded buffer shows through Append before the first read.
  CRfcString s(nullptr, 4);
  s += "Z";
  EXPECT_EQ(s.GetCapacity(), 5);
  EXPECT_EQ(s.GetLength(), 1);
  EXPECT_EQ(Text(s), " ");
}

}  // namespace
