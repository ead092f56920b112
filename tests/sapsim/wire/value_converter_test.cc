// Conversion of simple values between the RFC types.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::wire {
namespace {

struct Result {
  bool ok;
  std::string bytes;
  std::string error;
};

Result Convert(SimpleType from, const void* src, SimpleType to) {
  std::string dst(to.length, '#');
  std::string error;
  bool ok = ConvertValue(from, static_cast<const uint8_t*>(src), to,
                         reinterpret_cast<uint8_t*>(dst.data()), &error);
  return Result{ok, dst, error};
}

Result FromText(const char* text, SimpleType to) {
  return Convert(SimpleType{kTypeChar, static_cast<uint32_t>(std::strlen(text)), 0}, text, to);
}

int32_t AsInt(const std::string& bytes) {
  int32_t v;
  std::memcpy(&v, bytes.data(), 4);
  return v;
}

TEST(ValueConverter, CharIsCutOrBlankPadded) {
  EXPECT_EQ("ab  ", FromText("ab", {kTypeChar, 4, 0}).bytes);
  EXPECT_EQ("abc", FromText("abcdef", {kTypeChar, 3, 0}).bytes);
}

TEST(ValueConverter, NumTakesDigitsOnlyRightAligned) {
  EXPECT_EQ("00042", FromText(" 42 ", {kTypeNum, 5, 0}).bytes);
  EXPECT_EQ("00000", FromText("   ", {kTypeNum, 5, 0}).bytes);
  EXPECT_EQ("123", FromText("000123", {kTypeNum, 3, 0}).bytes);  // leading zeros do not count
  Result letters = FromText("4a", {kTypeNum, 5, 0});
  EXPECT_FALSE(letters.ok);
  EXPECT_EQ("#####", letters.bytes);  // target untouched on failure
  EXPECT_FALSE(FromText("123456", {kTypeNum, 5, 0}).ok);
  EXPECT_FALSE(FromText("-1", {kTypeNum, 5, 0}).ok);

  const char num[] = "000120";
  Result to_int = Convert({kTypeNum, 6, 0}, num, {kTypeInt, 4, 0});
  ASSERT_TRUE(to_int.ok) << to_int.error;
  EXPECT_EQ(120, AsInt(to_int.bytes));
  int32_t negative = -5;
  EXPECT_FALSE(Convert({kTypeInt, 4, 0}, &negative, {kTypeNum, 4, 0}).ok);
}

TEST(ValueConverter, IntegersCheckTheirRange) {
  int32_t big = 70000;
  EXPECT_FALSE(Convert({kTypeInt, 4, 0}, &big, {kTypeInt2, 2, 0}).ok);
  int32_t fits = -300;
  Result int2 = Convert({kTypeInt, 4, 0}, &fits, {kTypeInt2, 2, 0});
  ASSERT_TRUE(int2.ok);
  int16_t v2;
  std::memcpy(&v2, int2.bytes.data(), 2);
  EXPECT_EQ(-300, v2);
  EXPECT_FALSE(Convert({kTypeInt, 4, 0}, &fits, {kTypeInt1, 1, 0}).ok);  // INT1 is unsigned
  Result int_text = FromText("-2147483648", {kTypeInt, 4, 0});
  ASSERT_TRUE(int_text.ok);
  EXPECT_EQ(INT32_MIN, AsInt(int_text.bytes));
  EXPECT_FALSE(FromText("2147483648", {kTypeInt, 4, 0}).ok);
  Result rounded = FromText("2.5", {kTypeInt, 4, 0});
  EXPECT_EQ(3, AsInt(rounded.bytes));
  Result as_text = Convert({kTypeInt, 4, 0}, &fits, {kTypeChar, 6, 0});
  EXPECT_EQ("-300  ", as_text.bytes);
  Result too_short = Convert({kTypeInt, 4, 0}, &fits, {kTypeChar, 3, 0});
  EXPECT_FALSE(too_short.ok);
  EXPECT_NE(std::string::npos, too_short.error.find("does not fit"));
}

TEST(ValueConverter, PackedDecimalsFollowTheirDecimals) {
  const uint8_t packed[] = {0x01, 0x23, 0x4C};  // 12.34 with 2 decimals
  Result to_char = Convert({kTypeBcd, 3, 2}, packed, {kTypeChar, 8, 0});
  EXPECT_EQ("12.34   ", to_char.bytes);
  Result shifted = Convert({kTypeBcd, 3, 2}, packed, {kTypeBcd, 4, 3});
  EXPECT_EQ(std::string("\x00\x12\x34\x0C", 4), shifted.bytes);
  Result rounded = Convert({kTypeBcd, 3, 2}, packed, {kTypeBcd, 2, 1});
  EXPECT_EQ(std::string("\x12\x3C", 2), rounded.bytes);  // 12.3
  // A side that does not know its decimals takes the other's: the digits stay.
  Result unknown = Convert({kTypeBcd, 3, kDecimalsUnknown}, packed, {kTypeBcd, 4, 2});
  EXPECT_EQ(std::string("\x00\x01\x23\x4C", 4), unknown.bytes);
  Result to_float = Convert({kTypeBcd, 3, 2}, packed, {kTypeFloat, 8, 0});
  double d;
  std::memcpy(&d, to_float.bytes.data(), 8);
  EXPECT_DOUBLE_EQ(12.34, d);
  double price = 19.995;
  Result from_float = Convert({kTypeFloat, 8, 0}, &price, {kTypeBcd, 3, 2});
  EXPECT_EQ(std::string("\x02\x00\x0C", 3), from_float.bytes);  // 20.00
  const uint8_t bad[] = {0xAB, 0x0C};
  EXPECT_FALSE(Convert({kTypeBcd, 2, 0}, bad, {kTypeChar, 8, 0}).ok);
  EXPECT_FALSE(FromText("1234", {kTypeBcd, 2, 0}).ok);
}

TEST(ValueConverter, FloatFromTextAcceptsExponents) {
  Result r = FromText("1.5E3", {kTypeFloat, 8, 0});
  ASSERT_TRUE(r.ok) << r.error;
  double d;
  std::memcpy(&d, r.bytes.data(), 8);
  EXPECT_DOUBLE_EQ(1500.0, d);
  EXPECT_FALSE(FromText("1.5E3", {kTypeInt, 4, 0}).ok);  // only floats take exponents
}

TEST(ValueConverter, DateAndTimeAreDigitsOrBlank) {
  EXPECT_EQ("20240131", FromText("20240131", {kTypeDate, 8, 0}).bytes);
  EXPECT_EQ("00000000", FromText("", {kTypeDate, 8, 0}).bytes);
  EXPECT_FALSE(FromText("2024-01-31", {kTypeDate, 8, 0}).ok);
  EXPECT_FALSE(FromText("2024", {kTypeDate, 8, 0}).ok);
  EXPECT_EQ("235959", FromText("235959", {kTypeTime, 6, 0}).bytes);
  const char date[] = "20240131";
  EXPECT_EQ("20240131  ", Convert({kTypeDate, 8, 0}, date, {kTypeChar, 10, 0}).bytes);
  Result no_int = Convert({kTypeDate, 8, 0}, date, {kTypeInt, 4, 0});
  EXPECT_FALSE(no_int.ok);
  EXPECT_NE(std::string::npos, no_int.error.find("no conversion from DATE to INT"));
}

TEST(ValueConverter, BytesTravelAsHexText) {
  const uint8_t bytes[] = {0x0A, 0xFF, 0x10};
  EXPECT_EQ("0AFF10", Convert({kTypeByte, 3, 0}, bytes, {kTypeChar, 6, 0}).bytes);
  EXPECT_EQ(std::string("\x0A\xFF\x00\x00", 4), FromText("0aff", {kTypeByte, 4, 0}).bytes);
  EXPECT_FALSE(FromText("0g", {kTypeByte, 4, 0}).ok);
  EXPECT_FALSE(FromText("abc", {kTypeByte, 4, 0}).ok);  // odd number of digits
  EXPECT_EQ(std::string("\x0A\xFF", 2), Convert({kTypeByte, 3, 0}, bytes, {kTypeByte, 2, 0}).bytes);
  EXPECT_FALSE(Convert({kTypeByte, 3, 0}, bytes, {kTypeInt, 4, 0}).ok);
}

TEST(ValueConverter, ValueToTextShowsWhatUsersExpect) {
  int32_t one = 1;
  EXPECT_EQ("1", ValueToText({kTypeInt, 4, 0}, reinterpret_cast<const uint8_t*>(&one)));
  const uint8_t packed[] = {0x00, 0x05, 0x0D};
  EXPECT_EQ("-0.50", ValueToText({kTypeBcd, 3, 2}, packed));
  const char text[] = "ab  ";
  EXPECT_EQ("ab", ValueToText({kTypeChar, 4, 0}, reinterpret_cast<const uint8_t*>(text)));
}

}  // namespace
}  // namespace sapsim::wire
