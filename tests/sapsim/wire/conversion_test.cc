// Decimal numbers, and values and lines converted between RFC types and layouts.

#include <cstdio>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "sapsim/wire/decimal_number.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"
#include "tests/support/expected_file.h"

namespace sapsim::wire {
namespace {

template <typename T>
std::string Bytes(T value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}
const uint8_t* U8(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }
constexpr SimpleType Char(uint32_t length) { return {kTypeChar, length, 0}; }

DecimalNumber Parse(const char* text) {
  DecimalNumber number;
  std::string error;
  EXPECT_TRUE(DecimalNumber::Parse(text, false, &number, &error)) << text << ": " << error;
  return number;
}

std::string Hex(const uint8_t* bytes, size_t length) {
  std::string hex;
  char digits[3];
  for (size_t i = 0; i < length; ++i) hex += (std::snprintf(digits, sizeof digits, "%02X", bytes[i]), digits);
  return hex;
}

// Parsing, rounding (half away from zero) and packing, one line per input.
TEST(DecimalNumber, ParsesRoundsPacksAndConverts) {
  const struct { const char* text; bool exponent; int decimals; } texts[] = {  // decimals -1: as parsed
      {"  12.50 ", false, -1}, {"12-", false, -1},  // trailing sign, as ABAP writes it
      {"-.5", false, -1},      {"", false, -1},      {"-0", false, -1},     {"0007", false, -1},
      {"1.5E3", true, -1},     {"2.5e-4", true, -1}, {"1.235", false, 2},   {"-1.235", false, 2},
      {"1.2349", false, 2},    {"9.95", false, 1},   {"0.5", false, 0},     {"5", false, 2},
      {"0.4", false, 0},       {"abc", false, -1},   {"1.2.3", false, -1},  {"-", false, -1},
      {".", false, -1},        {"1 2", false, -1},   {"1e5", false, -1},    {"12x", false, -1},
      {"1e", true, -1},
  };
  std::string text;
  for (const auto& c : texts) {
    DecimalNumber number;
    std::string error;
    text += std::string("'") + c.text + "'" + (c.exponent ? " with exponent" : "") +
            (c.decimals >= 0 ? " to " + std::to_string(c.decimals) + " decimals" : "") + " -> ";
    const bool parsed = DecimalNumber::Parse(c.text, c.exponent, &number, &error);
    text += (parsed ? (c.decimals < 0 ? number : number.Rescaled(c.decimals)).ToText() : error) + "\n";
  }
  const struct { const char* text; size_t length; int decimals; } packs[] = {
      {"1.23", 3, 2}, {"-3.14159", 3, 2}, {"12.5", 2, 0}, {"", 3, 2}, {"999.99", 3, 2}, {"1234", 3, 2},
      {"999.995", 3, 2}};  // rounding overflows
  for (const auto& c : packs) {
    std::vector<uint8_t> bytes(c.length);
    std::string error;
    const bool packed = Parse(c.text).ToPacked(bytes.data(), c.length, c.decimals, &error);
    text += std::string("'") + c.text + "' packed in " + std::to_string(c.length) + " bytes with " +
            std::to_string(c.decimals) + " decimals -> " + (packed ? Hex(bytes.data(), c.length) : error) + "\n";
  }
  const std::vector<uint8_t> unpacks[] = {{0x00, 0x1D}, {0x0A, 0x1C}, {0xA1}};  // A1: the high nibble is a digit too
  for (const std::vector<uint8_t>& bytes : unpacks) {
    DecimalNumber number;
    std::string error;
    const bool ok = DecimalNumber::FromPacked(bytes.data(), bytes.size(), 0, &number, &error);
    text += "packed " + Hex(bytes.data(), bytes.size()) + " -> " + (ok ? number.ToText() : error) + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/decimal_number.txt"));

  DecimalNumber out;
  int64_t v = 0;
  EXPECT_TRUE(Parse("-9223372036854775808").ToInt(&v));
  EXPECT_EQ(std::numeric_limits<int64_t>::min(), v);
  EXPECT_FALSE(Parse("9223372036854775808").ToInt(&v));
  EXPECT_EQ("-2147483648", DecimalNumber::FromInt(std::numeric_limits<int32_t>::min()).ToText());
  ASSERT_TRUE(DecimalNumber::FromDouble(1.005, &out));
  EXPECT_EQ("1.01", out.Rescaled(2).ToText());  // what the user wrote, not the binary neighbour
  EXPECT_FALSE(DecimalNumber::FromDouble(std::numeric_limits<double>::infinity(), &out));
}

std::string TypeText(const SimpleType& type) {
  return std::string(TypeName(type.type)) + " " + std::to_string(type.length) +
         (type.decimals == kDecimalsUnknown ? ".?" : type.decimals != 0 ? "." + std::to_string(type.decimals) : "");
}
// CHAR, NUM, DATE and TIME as text; the binary types as hex bytes.
std::string Shown(int32_t type, const std::string& bytes) {
  const bool text = type == kTypeChar || type == kTypeNum || type == kTypeDate || type == kTypeTime;
  return text ? "'" + bytes + "'" : "0x" + Hex(U8(bytes), bytes.size());
}

// One line per conversion: the target's bytes, or the error (and the target untouched).
TEST(ValueConverter, FollowsTheConversionRules) {
  const std::string packed_1234("\x01\x23\x4C", 3);  // 12.34 with 2 decimals
  constexpr SimpleType kInt4{kTypeInt, 4, 0}, kNum5{kTypeNum, 5, 0}, kDate{kTypeDate, 8, 0}, kFloat{kTypeFloat, 8, 0},
      kBcd3{kTypeBcd, 3, 2}, kByte3{kTypeByte, 3, 0}, kByte4{kTypeByte, 4, 0};
  const struct { SimpleType from; std::string source; SimpleType to; } cases[] = {
      // CHAR is cut or blank-padded; NUM takes digits only, right-aligned.
      {Char(2), "ab", Char(4)}, {Char(6), "abcdef", Char(3)}, {Char(4), " 42 ", kNum5}, {Char(3), "   ", kNum5},
      {Char(6), "000123", {kTypeNum, 3, 0}}, {Char(2), "4a", kNum5}, {Char(6), "123456", kNum5}, {Char(2), "-1", kNum5},
      {{kTypeNum, 6, 0}, "000120", kInt4}, {kInt4, Bytes<int32_t>(-5), {kTypeNum, 4, 0}},
      // Integers round half away from zero and check their range; INT1 is unsigned.
      {kInt4, Bytes<int32_t>(70000), {kTypeInt2, 2, 0}}, {kInt4, Bytes<int32_t>(-300), {kTypeInt2, 2, 0}},
      {kInt4, Bytes<int32_t>(-300), {kTypeInt1, 1, 0}}, {Char(11), "-2147483648", kInt4},
      {Char(10), "2147483648", kInt4},
      {Char(3), "2.5", kInt4}, {Char(5), "1.5E3", kInt4},  // only floats take exponents
      {kInt4, Bytes<int32_t>(-300), Char(6)}, {kInt4, Bytes<int32_t>(-300), Char(3)},
      // Packed decimals follow their decimals; an unknown side takes the other's.
      {kBcd3, packed_1234, Char(8)}, {kBcd3, packed_1234, {kTypeBcd, 4, 3}}, {kBcd3, packed_1234, {kTypeBcd, 2, 1}},
      {{kTypeBcd, 3, kDecimalsUnknown}, packed_1234, {kTypeBcd, 4, 2}}, {kBcd3, packed_1234, kFloat},
      {kFloat, Bytes(19.995), kBcd3}, {{kTypeBcd, 2, 0}, std::string("\xAB\x0C", 2), Char(8)},
      {Char(4), "1234", {kTypeBcd, 2, 0}}, {Char(5), "1.5E3", kFloat},
      // DATE and TIME are digits or blank, and no numbers.
      {Char(8), "20240131", kDate}, {Char(0), "", kDate}, {Char(10), "2024-01-31", kDate}, {Char(4), "2024", kDate},
      {Char(6), "235959", {kTypeTime, 6, 0}}, {kDate, "20240131", Char(10)}, {kDate, "20240131", kInt4},
      // BYTE travels as hex text.
      {kByte3, "\x0A\xFF\x10", Char(6)}, {Char(4), "0aff", kByte4}, {Char(2), "0g", kByte4},
      {Char(3), "abc", kByte4},  // odd number of digits
      {kByte3, "\x0A\xFF\x10", {kTypeByte, 2, 0}}, {kByte3, "\x0A\xFF\x10", kInt4},
  };
  std::string text;
  for (const auto& c : cases) {
    std::string target(c.to.length, '#');
    std::string error;
    const bool ok = ConvertValue(c.from, U8(c.source), c.to, reinterpret_cast<uint8_t*>(target.data()), &error);
    text += TypeText(c.from) + " " + Shown(c.from.type, c.source) + " -> " + TypeText(c.to) + " ";
    text += (ok ? Shown(c.to.type, target) : "! " + error) + "\n";
    EXPECT_TRUE(ok || target == std::string(c.to.length, '#')) << "untouched on failure";
  }
  const uint8_t packed[] = {0x00, 0x05, 0x0D};
  text += "as text: '" + ValueToText(kBcd3, packed) + "' '" + ValueToText(Char(4), U8("ab  ")) + "'\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/value_conversions.txt"));
}

ValueDesc Layout(std::vector<FieldDesc> fields) {
  uint32_t length = LayOut(fields);
  return ValueDesc::Structure(fields, length);
}

// A line field by field and whole (gaps included); raw lines; a field that does not convert.
TEST(LineConverter, MatchesFieldsByNameAndCutsOrPadsRawLines) {
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
  std::string dst(receiver.length, '\xEE');
  std::string error, text = "fields:";
  ASSERT_TRUE(converter.Convert(src.data(), reinterpret_cast<uint8_t*>(dst.data()), &error)) << error;
  for (const FieldDesc& f : receiver.fields) text += " " + f.name + "=" + Shown(f.type, dst.substr(f.offset, f.length));
  text += "\nline: " + Hex(U8(dst), dst.size()) + "\n";

  const ValueDesc raw_char = ValueDesc::Raw(kTypeChar, 6), raw_byte = ValueDesc::Raw(kTypeByte, 6),
                  four = ValueDesc::Raw(kTypeChar, 4),
                  structure = Layout({{"A", kTypeChar, 2, 0, 0}, {"N", kTypeNum, 4, 0, 0}}),
                  simple_char = ValueDesc::Simple(kTypeChar, 3), simple_int = ValueDesc::Simple(kTypeInt, 4);
  const struct { const ValueDesc* from; const ValueDesc* to; const char* source; } cases[] = {
      {&four, &raw_char, "abcd"},      {&four, &raw_byte, "abcd"}, {&raw_char, &four, "abcdef"},
      {&structure, &raw_char, "xy0012"},  // the sender's bytes as they are
      {&four, &structure, "qr00"},        // filled from the start; N keeps its zeros
      {&simple_char, &simple_int, "-17"},
  };
  for (const auto& c : cases) {
    std::string line(c.to->length, '#');
    ASSERT_TRUE(LineConverter(*c.from, *c.to).Convert(U8(c.source), reinterpret_cast<uint8_t*>(line.data()), &error));
    text += std::string("'") + c.source + "' -> '" + testutil::Escaped(line) + "'\n";
  }
  uint8_t bytes[4];
  EXPECT_FALSE(LineConverter(Layout({{"QTY", kTypeChar, 5, 0, 0}}), Layout({{"QTY", kTypeInt, 4, 0, 0}}))
                   .Convert(U8("12ab "), bytes, &error));
  text += "'12ab ' -> " + error + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/line_conversions.txt"));
}

}  // namespace
}  // namespace sapsim::wire
