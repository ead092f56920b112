// Conversion of simple values between the RFC types.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::wire {
namespace {

template <typename T>
std::string Bytes(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

constexpr SimpleType Char(uint32_t length) { return {kTypeChar, length, 0}; }

struct Case {
  SimpleType from;
  std::string source;
  SimpleType to;
  std::string expected;  // the target's bytes; "!" when the conversion must fail
};

TEST(ValueConverter, FollowsTheConversionRules) {
  const std::string packed_1234("\x01\x23\x4C", 3);  // 12.34 with 2 decimals
  const Case cases[] = {
      // CHAR is cut or blank-padded; NUM takes digits only, right-aligned.
      {Char(2), "ab", Char(4), "ab  "},
      {Char(6), "abcdef", Char(3), "abc"},
      {Char(4), " 42 ", {kTypeNum, 5, 0}, "00042"},
      {Char(3), "   ", {kTypeNum, 5, 0}, "00000"},
      {Char(6), "000123", {kTypeNum, 3, 0}, "123"},  // leading zeros do not count
      {Char(2), "4a", {kTypeNum, 5, 0}, "!"},
      {Char(6), "123456", {kTypeNum, 5, 0}, "!"},
      {Char(2), "-1", {kTypeNum, 5, 0}, "!"},
      {{kTypeNum, 6, 0}, "000120", {kTypeInt, 4, 0}, Bytes<int32_t>(120)},
      {{kTypeInt, 4, 0}, Bytes<int32_t>(-5), {kTypeNum, 4, 0}, "!"},
      // Integers round half away from zero and check their range; INT1 is unsigned.
      {{kTypeInt, 4, 0}, Bytes<int32_t>(70000), {kTypeInt2, 2, 0}, "!"},
      {{kTypeInt, 4, 0}, Bytes<int32_t>(-300), {kTypeInt2, 2, 0}, Bytes<int16_t>(-300)},
      {{kTypeInt, 4, 0}, Bytes<int32_t>(-300), {kTypeInt1, 1, 0}, "!"},
      {Char(11), "-2147483648", {kTypeInt, 4, 0}, Bytes<int32_t>(INT32_MIN)},
      {Char(10), "2147483648", {kTypeInt, 4, 0}, "!"},
      {Char(3), "2.5", {kTypeInt, 4, 0}, Bytes<int32_t>(3)},
      {Char(5), "1.5E3", {kTypeInt, 4, 0}, "!"},  // only floats take exponents
      {{kTypeInt, 4, 0}, Bytes<int32_t>(-300), Char(6), "-300  "},
      {{kTypeInt, 4, 0}, Bytes<int32_t>(-300), Char(3), "!"},
      // Packed decimals follow their decimals; an unknown side takes the other's.
      {{kTypeBcd, 3, 2}, packed_1234, Char(8), "12.34   "},
      {{kTypeBcd, 3, 2}, packed_1234, {kTypeBcd, 4, 3}, std::string("\x00\x12\x34\x0C", 4)},
      {{kTypeBcd, 3, 2}, packed_1234, {kTypeBcd, 2, 1}, std::string("\x12\x3C", 2)},
      {{kTypeBcd, 3, kDecimalsUnknown}, packed_1234, {kTypeBcd, 4, 2}, std::string("\x00\x01\x23\x4C", 4)},
      {{kTypeBcd, 3, 2}, packed_1234, {kTypeFloat, 8, 0}, Bytes(12.34)},
      {{kTypeFloat, 8, 0}, Bytes(19.995), {kTypeBcd, 3, 2}, std::string("\x02\x00\x0C", 3)},
      {{kTypeBcd, 2, 0}, std::string("\xAB\x0C", 2), Char(8), "!"},
      {Char(4), "1234", {kTypeBcd, 2, 0}, "!"},
      {Char(5), "1.5E3", {kTypeFloat, 8, 0}, Bytes(1500.0)},
      // DATE and TIME are digits or blank, and no numbers.
      {Char(8), "20240131", {kTypeDate, 8, 0}, "20240131"},
      {Char(0), "", {kTypeDate, 8, 0}, "00000000"},
      {Char(10), "2024-01-31", {kTypeDate, 8, 0}, "!"},
      {Char(4), "2024", {kTypeDate, 8, 0}, "!"},
      {Char(6), "235959", {kTypeTime, 6, 0}, "235959"},
      {{kTypeDate, 8, 0}, "20240131", Char(10), "20240131  "},
      {{kTypeDate, 8, 0}, "20240131", {kTypeInt, 4, 0}, "!"},
      // BYTE travels as hex text.
      {{kTypeByte, 3, 0}, "\x0A\xFF\x10", Char(6), "0AFF10"},
      {Char(4), "0aff", {kTypeByte, 4, 0}, std::string("\x0A\xFF\x00\x00", 4)},
      {Char(2), "0g", {kTypeByte, 4, 0}, "!"},
      {Char(3), "abc", {kTypeByte, 4, 0}, "!"},  // odd number of digits
      {{kTypeByte, 3, 0}, "\x0A\xFF\x10", {kTypeByte, 2, 0}, "\x0A\xFF"},
      {{kTypeByte, 3, 0}, "\x0A\xFF\x10", {kTypeInt, 4, 0}, "!"},
  };
  for (const Case& c : cases) {
    std::string target(c.to.length, '#');
    std::string error;
    const bool ok = ConvertValue(c.from, reinterpret_cast<const uint8_t*>(c.source.data()), c.to,
                                 reinterpret_cast<uint8_t*>(target.data()), &error);
    SCOPED_TRACE("from type " + std::to_string(c.from.type) + " '" + c.source + "' to type " +
                 std::to_string(c.to.type));
    if (c.expected == "!") {
      EXPECT_FALSE(ok);
      EXPECT_FALSE(error.empty());
      EXPECT_EQ(std::string(c.to.length, '#'), target);  // untouched on failure
    } else {
      EXPECT_TRUE(ok) << error;
      EXPECT_EQ(c.expected, target);
    }
  }
}

TEST(ValueConverter, ErrorsSayWhatWentWrong) {
  const int32_t value = -300;
  std::string target(3, '#');
  std::string error;
  EXPECT_FALSE(ConvertValue({kTypeInt, 4, 0}, reinterpret_cast<const uint8_t*>(&value), Char(3),
                            reinterpret_cast<uint8_t*>(target.data()), &error));
  EXPECT_NE(std::string::npos, error.find("does not fit")) << error;
  int32_t number = 0;
  EXPECT_FALSE(ConvertValue({kTypeDate, 8, 0}, reinterpret_cast<const uint8_t*>("20240131"), {kTypeInt, 4, 0},
                            reinterpret_cast<uint8_t*>(&number), &error));
  EXPECT_NE(std::string::npos, error.find("no conversion from DATE to INT")) << error;
}

TEST(ValueConverter, ValueToTextShowsWhatUsersExpect) {
  const int32_t one = 1;
  EXPECT_EQ("1", ValueToText({kTypeInt, 4, 0}, reinterpret_cast<const uint8_t*>(&one)));
  const uint8_t packed[] = {0x00, 0x05, 0x0D};
  EXPECT_EQ("-0.50", ValueToText({kTypeBcd, 3, 2}, packed));
  EXPECT_EQ("ab", ValueToText(Char(4), reinterpret_cast<const uint8_t*>("ab  ")));
}

}  // namespace
}  // namespace sapsim::wire
