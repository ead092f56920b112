// Exact decimal numbers and the conversion of values and whole lines
// between the RFC types and two layouts of one structure.

#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "sapsim/wire/decimal_number.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::wire {
namespace {

template <typename T>
std::string Bytes(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}
const uint8_t* U8(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }
constexpr SimpleType Char(uint32_t length) { return {kTypeChar, length, 0}; }

DecimalNumber Parse(const char* text, bool exponent = false) {
  DecimalNumber number;
  std::string error;
  EXPECT_TRUE(DecimalNumber::Parse(text, exponent, &number, &error)) << text << ": " << error;
  return number;
}

TEST(DecimalNumber, ParsesRoundsAndConverts) {
  // decimals -1: as parsed.
  const struct { const char* text; bool exponent; int decimals; const char* shown; } cases[] = {
      {"  12.50 ", false, -1, "12.50"}, {"12-", false, -1, "-12"},  // trailing sign, as ABAP writes it
      {"-.5", false, -1, "-0.5"},       {"", false, -1, "0"},        {"-0", false, -1, "0"},
      {"0007", false, -1, "7"},         {"1.5E3", true, -1, "1500"}, {"2.5e-4", true, -1, "0.00025"},
      {"1.235", false, 2, "1.24"},      {"-1.235", false, 2, "-1.24"},  // half away from zero
      {"1.2349", false, 2, "1.23"},     {"9.95", false, 1, "10.0"},  {"0.5", false, 0, "1"},
      {"5", false, 2, "5.00"},          {"0.4", false, 0, "0"},
  };
  for (const auto& c : cases) {
    const DecimalNumber number = Parse(c.text, c.exponent);
    EXPECT_EQ(c.shown, (c.decimals < 0 ? number : number.Rescaled(c.decimals)).ToText()) << c.text;
  }
  DecimalNumber out;
  std::string error;
  for (const char* bad : {"abc", "1.2.3", "-", ".", "1 2", "1e5", "12x"}) {
    EXPECT_FALSE(DecimalNumber::Parse(bad, false, &out, &error)) << bad;
    EXPECT_NE(std::string::npos, error.find("not a number")) << bad << ": " << error;
  }
  EXPECT_FALSE(DecimalNumber::Parse("1e", true, &out, &error));

  int64_t v = 0;
  EXPECT_TRUE(Parse("-9223372036854775808").ToInt(&v));
  EXPECT_EQ(std::numeric_limits<int64_t>::min(), v);
  EXPECT_FALSE(Parse("9223372036854775808").ToInt(&v));
  EXPECT_EQ("-2147483648", DecimalNumber::FromInt(std::numeric_limits<int32_t>::min()).ToText());
  ASSERT_TRUE(DecimalNumber::FromDouble(1.005, &out));
  EXPECT_EQ("1.01", out.Rescaled(2).ToText());  // what the user wrote, not the binary neighbour
  ASSERT_TRUE(DecimalNumber::FromDouble(-2.5e-7, &out));
  EXPECT_DOUBLE_EQ(-2.5e-7, out.ToDouble());
  EXPECT_FALSE(DecimalNumber::FromDouble(std::numeric_limits<double>::infinity(), &out));
}

TEST(DecimalNumber, PackedDigitsAndSignNibbles) {
  const struct {
    const char* text;
    size_t length;
    int decimals;
    const char* hex;  // "!": does not fit
  } packs[] = {{"1.23", 3, 2, "00123C"}, {"-3.14159", 3, 2, "00314D"}, {"12.5", 2, 0, "013C"},
               {"", 3, 2, "00000C"},     {"999.99", 3, 2, "99999C"},   {"1234", 3, 2, "!"},
               {"999.995", 3, 2, "!"}};  // rounding overflows
  for (const auto& c : packs) {
    std::vector<uint8_t> bytes(c.length);
    std::string error, hex;
    if (Parse(c.text).ToPacked(bytes.data(), c.length, c.decimals, &error)) {
      char buf[4];
      for (uint8_t b : bytes) hex += (std::snprintf(buf, sizeof buf, "%02X", b), buf);
    } else {
      hex = "!";
      EXPECT_NE(std::string::npos, error.find("does not fit")) << error;
    }
    EXPECT_EQ(c.hex, hex) << c.text;
  }
  DecimalNumber number;
  std::string error;
  const uint8_t negative[] = {0x00, 0x1D};
  ASSERT_TRUE(DecimalNumber::FromPacked(negative, 2, 0, &number, &error));
  EXPECT_EQ("-1", number.ToText());
  const uint8_t bad[] = {0x0A, 0x1C};
  EXPECT_FALSE(DecimalNumber::FromPacked(bad, 2, 0, &number, &error));
  EXPECT_NE(std::string::npos, error.find("invalid digit"));
  const uint8_t bad_last[] = {0xA1};  // the last byte's high nibble is a digit too
  EXPECT_FALSE(DecimalNumber::FromPacked(bad_last, 1, 0, &number, &error));
}

TEST(ValueConverter, FollowsTheConversionRules) {
  const std::string packed_1234("\x01\x23\x4C", 3);  // 12.34 with 2 decimals
  constexpr SimpleType kInt4{kTypeInt, 4, 0}, kNum5{kTypeNum, 5, 0}, kDate{kTypeDate, 8, 0}, kFloat{kTypeFloat, 8, 0},
      kBcd3{kTypeBcd, 3, 2}, kByte3{kTypeByte, 3, 0}, kByte4{kTypeByte, 4, 0};
  // `expected`: the target's bytes; "!" when the conversion must fail.
  const struct { SimpleType from; std::string source; SimpleType to; std::string expected; } cases[] = {
      // CHAR is cut or blank-padded; NUM takes digits only, right-aligned.
      {Char(2), "ab", Char(4), "ab  "}, {Char(6), "abcdef", Char(3), "abc"}, {Char(4), " 42 ", kNum5, "00042"},
      {Char(3), "   ", kNum5, "00000"}, {Char(6), "000123", {kTypeNum, 3, 0}, "123"}, {Char(2), "4a", kNum5, "!"},
      {Char(6), "123456", kNum5, "!"}, {Char(2), "-1", kNum5, "!"},
      {{kTypeNum, 6, 0}, "000120", kInt4, Bytes<int32_t>(120)}, {kInt4, Bytes<int32_t>(-5), {kTypeNum, 4, 0}, "!"},
      // Integers round half away from zero and check their range; INT1 is unsigned.
      {kInt4, Bytes<int32_t>(70000), {kTypeInt2, 2, 0}, "!"},
      {kInt4, Bytes<int32_t>(-300), {kTypeInt2, 2, 0}, Bytes<int16_t>(-300)},
      {kInt4, Bytes<int32_t>(-300), {kTypeInt1, 1, 0}, "!"},
      {Char(11), "-2147483648", kInt4, Bytes<int32_t>(INT32_MIN)}, {Char(10), "2147483648", kInt4, "!"},
      {Char(3), "2.5", kInt4, Bytes<int32_t>(3)},
      {Char(5), "1.5E3", kInt4, "!"},  // only floats take exponents
      {kInt4, Bytes<int32_t>(-300), Char(6), "-300  "}, {kInt4, Bytes<int32_t>(-300), Char(3), "!"},
      // Packed decimals follow their decimals; an unknown side takes the other's.
      {kBcd3, packed_1234, Char(8), "12.34   "},
      {kBcd3, packed_1234, {kTypeBcd, 4, 3}, std::string("\x00\x12\x34\x0C", 4)},
      {kBcd3, packed_1234, {kTypeBcd, 2, 1}, std::string("\x12\x3C", 2)},
      {{kTypeBcd, 3, kDecimalsUnknown}, packed_1234, {kTypeBcd, 4, 2}, std::string("\x00\x01\x23\x4C", 4)},
      {kBcd3, packed_1234, kFloat, Bytes(12.34)}, {kFloat, Bytes(19.995), kBcd3, std::string("\x02\x00\x0C", 3)},
      {{kTypeBcd, 2, 0}, std::string("\xAB\x0C", 2), Char(8), "!"}, {Char(4), "1234", {kTypeBcd, 2, 0}, "!"},
      {Char(5), "1.5E3", kFloat, Bytes(1500.0)},
      // DATE and TIME are digits or blank, and no numbers.
      {Char(8), "20240131", kDate, "20240131"}, {Char(0), "", kDate, "00000000"}, {Char(10), "2024-01-31", kDate, "!"},
      {Char(4), "2024", kDate, "!"}, {Char(6), "235959", {kTypeTime, 6, 0}, "235959"},
      {kDate, "20240131", Char(10), "20240131  "}, {kDate, "20240131", kInt4, "!"},
      // BYTE travels as hex text.
      {kByte3, "\x0A\xFF\x10", Char(6), "0AFF10"}, {Char(4), "0aff", kByte4, std::string("\x0A\xFF\x00\x00", 4)},
      {Char(2), "0g", kByte4, "!"},
      {Char(3), "abc", kByte4, "!"},  // odd number of digits
      {kByte3, "\x0A\xFF\x10", {kTypeByte, 2, 0}, "\x0A\xFF"}, {kByte3, "\x0A\xFF\x10", kInt4, "!"},
  };
  for (const auto& c : cases) {
    std::string target(c.to.length, '#');
    std::string error;
    const bool ok = ConvertValue(c.from, U8(c.source), c.to, reinterpret_cast<uint8_t*>(target.data()), &error);
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
  std::string error;
  int32_t number = 0;
  EXPECT_FALSE(ConvertValue(kDate, U8("20240131"), kInt4, reinterpret_cast<uint8_t*>(&number), &error));
  EXPECT_NE(std::string::npos, error.find("no conversion from DATE to INT")) << error;
  const uint8_t packed[] = {0x00, 0x05, 0x0D};
  EXPECT_EQ("-0.50", ValueToText(kBcd3, packed));
  EXPECT_EQ("ab", ValueToText(Char(4), U8("ab  ")));
}

ValueDesc Layout(std::vector<FieldDesc> fields) {
  uint32_t length = LayOut(fields);
  return ValueDesc::Structure(fields, length);
}

TEST(LineConverter, MatchesFieldsByNameAcrossLayouts) {
  ValueDesc sender = Layout({{"NAME", kTypeChar, 10, 0, 0}, {"QTY", kTypeNum, 6, 0, 0},
                             {"PRICE", kTypeBcd, 5, 2, 0}, {"WHEN", kTypeDate, 8, 0, 0}});
  // Other order, shorter NAME, QTY as INT, PRICE as FLOAT, a field the sender
  // does not know, no WHEN.
  ValueDesc receiver = Layout({{"QTY", kTypeInt, 4, 0, 0}, {"EXTRA", kTypeNum, 3, 0, 0},
                               {"PRICE", kTypeFloat, 8, 0, 0}, {"NAME", kTypeChar, 4, 0, 0}});
  std::vector<uint8_t> src(sender.length, 0);
  std::memcpy(src.data() + sender.fields[0].offset, "Widget    ", 10);
  std::memcpy(src.data() + sender.fields[1].offset, "000012", 6);
  std::memcpy(src.data() + sender.fields[2].offset, "\x00\x00\x19\x99\x5C", 5);
  std::memcpy(src.data() + sender.fields[3].offset, "20240131", 8);
  LineConverter converter(sender, receiver);
  EXPECT_FALSE(converter.identity());
  EXPECT_TRUE(LineConverter(sender, sender).identity());
  std::vector<uint8_t> dst(receiver.length, 0xEE);
  std::string error;
  ASSERT_TRUE(converter.Convert(src.data(), dst.data(), &error)) << error;
  int32_t qty;
  std::memcpy(&qty, dst.data() + receiver.fields[0].offset, 4);
  EXPECT_EQ(12, qty);
  EXPECT_EQ(0, std::memcmp(dst.data() + receiver.fields[1].offset, "000", 3));  // initial NUM
  double value;
  std::memcpy(&value, dst.data() + receiver.fields[2].offset, 8);
  EXPECT_DOUBLE_EQ(199.95, value);
  EXPECT_EQ(0, std::memcmp(dst.data() + receiver.fields[3].offset, "Widg", 4));
  EXPECT_EQ(0, dst[receiver.fields[1].offset + 3]);  // alignment gaps are zero

  uint8_t four[4];
  EXPECT_FALSE(LineConverter(Layout({{"QTY", kTypeChar, 5, 0, 0}}), Layout({{"QTY", kTypeInt, 4, 0, 0}}))
                   .Convert(U8("12ab "), four, &error));
  EXPECT_EQ(0u, error.find("field QTY: "));
}

TEST(LineConverter, RawLinesAreCutOrPaddedForTheReceiver) {
  const ValueDesc raw_char = ValueDesc::Raw(kTypeChar, 6), raw_byte = ValueDesc::Raw(kTypeByte, 6),
                  four = ValueDesc::Raw(kTypeChar, 4),
                  structure = Layout({{"A", kTypeChar, 2, 0, 0}, {"N", kTypeNum, 4, 0, 0}});
  const struct { const ValueDesc* from; const ValueDesc* to; const char* source; std::string expected; } cases[] = {
      {&four, &raw_char, "abcd", "abcd  "},
      {&four, &raw_byte, "abcd", std::string("abcd\0\0", 6)},
      {&raw_char, &four, "abcdef", "abcd"},
      {&structure, &raw_char, "xy0012", "xy0012"},  // the sender's bytes as they are
      {&four, &structure, "qr00", "qr0000"},        // filled from the start; N keeps its zeros
  };
  for (const auto& c : cases) {
    std::string dst(c.expected.size(), '#');
    std::string error;
    ASSERT_TRUE(LineConverter(*c.from, *c.to).Convert(U8(c.source), reinterpret_cast<uint8_t*>(dst.data()), &error));
    EXPECT_EQ(c.expected, dst) << c.source;
  }
  int32_t out = 0;
  std::string error;
  ASSERT_TRUE(LineConverter(ValueDesc::Simple(kTypeChar, 3), ValueDesc::Simple(kTypeInt, 4))
                  .Convert(U8("-17"), reinterpret_cast<uint8_t*>(&out), &error));
  EXPECT_EQ(-17, out);
}

}  // namespace
}  // namespace sapsim::wire
