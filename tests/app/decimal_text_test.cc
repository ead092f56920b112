#include "app/decimal_text.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(DecimalTextTest, ReadsLeadingDigitsAfterWhiteSpaceAndSign) {
  EXPECT_EQ(DecimalTextToInt("250"), 250);
  EXPECT_EQ(DecimalTextToInt("  250"), 250);
  EXPECT_EQ(DecimalTextToInt("\t\r\n 7"), 7);
  EXPECT_EQ(DecimalTextToInt("250ms"), 250);
  EXPECT_EQ(DecimalTextToInt("00"), 0);
  EXPECT_EQ(DecimalTextToInt("08"), 8);
  EXPECT_EQ(DecimalTextToInt("-5"), -5);
  EXPECT_EQ(DecimalTextToInt("+12"), 12);
  EXPECT_EQ(DecimalTextToInt("1 2"), 1);
}

TEST(DecimalTextTest, NoDigitsGiveZero) {
  EXPECT_EQ(DecimalTextToInt(""), 0);
  EXPECT_EQ(DecimalTextToInt("abc"), 0);
  EXPECT_EQ(DecimalTextToInt("   "), 0);
  EXPECT_EQ(DecimalTextToInt("-"), 0);
  EXPECT_EQ(DecimalTextToInt("- 5"), 0);
  EXPECT_EQ(DecimalTextToInt("x250"), 0);
}

TEST(DecimalTextTest, FiguresBeyondTheRangeAreClamped) {
  EXPECT_EQ(DecimalTextToInt("2147483647"), INT_MAX);
  EXPECT_EQ(DecimalTextToInt("2147483648"), INT_MAX);
  EXPECT_EQ(DecimalTextToInt("-2147483648"), INT_MIN);
  EXPECT_EQ(DecimalTextToInt("-2147483649"), INT_MIN);
  EXPECT_EQ(DecimalTextToInt("99999999999999999999999999999999"), INT_MAX);
  EXPECT_EQ(DecimalTextToInt("-99999999999999999999999999999999"), INT_MIN);
}

}  // namespace
