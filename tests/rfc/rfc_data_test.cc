// CRfcData: the type table, the packed-decimal rules, every assignment and
// reading conversion with its deliberate gaps, the copy with conversion, byte
// order, the text of every type, and the trace lines of failed conversions.

#include "rfc/core/rfc_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/rfc/rfc_test_support.h"

namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using Bytes = std::vector<unsigned char>;
using rfc_test::RunTraced;
using rfc_test::Thrown;

constexpr const char kToPack[] = "CRfcData: Conversion to PACK type (BCD) failed";
constexpr const char kFromPack[] = "CRfcData: Conversion from PACK type (BCD) failed";
constexpr const char kTooLong[] = "CRfcData:operator=(CSTR) Input string too long, exceeding ";
const auto kHeader = ::testing::StartsWith("Rfc Class Library Trace at   ");

std::string Hex(const Bytes& bytes) {
  std::string out;
  char part[4];
  for (unsigned char b : bytes) {
    std::snprintf(part, sizeof part, out.empty() ? "%02X" : " %02X", b);
    out += part;
  }
  return out;
}
Bytes Raw(const std::string& text) { return Bytes(text.begin(), text.end()); }
template <typename T>
Bytes NativeBytes(T value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// A value bound to bytes of its own.
struct Value {
  Value(int type, const Bytes& initial, int decimals = 0, int native_order = 1)
      : bytes(initial), data(native_order) {
    data.Init(bytes.data(), type, static_cast<int>(bytes.size()), decimals);
  }
  Value(int type, int length, int decimals = 0)
      : Value(type, Bytes(static_cast<size_t>(length), 0), decimals) {}
  std::string Text() { return static_cast<CSTR>(data); }
  std::string HexBytes() const { return Hex(bytes); }
  Bytes bytes;
  CRfcData data;
};

TEST(RfcData, TypeTableBindingAndClearedForms) {
  struct Case {
    int type, given, length;
    std::string cleared;  // the first length + 1 bytes of 0xAA after ClearValue
  };
  const Case cases[] = {
      {TYPE_CHAR, 3, 3, "   \xAA"}, {TYPE_BCD, 2, 2, "\0\0\xAA"s}, {TYPE_BYTE, 2, 2, "\0\0\xAA"s},
      {TYPE_NUM, 4, 4, "0000\xAA"}, {TYPE_DATE, 3, 8, "00000000\xAA"}, {TYPE_TIME, 99, 6, "000000\xAA"},
      {TYPE_FLOAT, 0, 8, std::string(8, '\0') + "\xAA"}, {TYPE_INT, 0, 4, "\0\0\0\0\xAA"s},
      {TYPE_INT2, 0, 2, "\0\0\xAA"s}, {TYPE_INT1, 0, 1, "\0\xAA"s}, {TYPE_ITAB, 10, -1, "\xAA"},
      {42, 10, -1, "\xAA"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(RfcFixedLength(c.type, c.given), c.length) << c.type;
    Bytes buffer(16, 0xAA);
    CRfcData data(1);
    data.Init(buffer.data(), c.type, c.given, 3);
    int type = -9, length = -9, decimals = -9;
    data.GetInfo(type, length, decimals);
    EXPECT_EQ(std::vector<int>({type, length, decimals}), std::vector<int>({c.type, c.length, 3}));
    EXPECT_EQ(data.GetData(), buffer.data());
    data.ClearValue();
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + static_cast<long>(c.cleared.size())),
              c.cleared) << c.type;
  }
}

TEST(RfcData, PackedReading) {
  struct Case {
    Bytes bytes;
    int decimals;
    const char* text;
  };
  const Case cases[] = {
      {{0x00, 0x12, 0x3C}, 2, "1.23"}, {{0x00, 0x01, 0x2C}, 2, "0.12"}, {{0x00, 0x00, 0x0C}, 0, "0"},
      {{0x00, 0x00, 0x0C}, 2, "0.00"}, {{0x00, 0x1D}, 0, "-1"}, {{0x15, 0x0C}, 2, "1.50"},
      {{0x00, 0x5D}, 2, "-0.05"}, {{0x00, 0x0D}, 0, "-"}, {{0x00, 0x00, 0x0D}, 2, "-0.00"},
      // Only D is negative; the sign nibble is never checked further.
      {{0x00, 0x7F}, 0, "7"}, {{0x00, 0x7A}, 0, "7"}, {{0x00, 0x70}, 0, "7"},
      {{0x01, 0x2E}, 0, "12"}, {{0x00, 0x1C}, 2, "0.01"},  // 2L-2 decimals: one integer place
  };
  for (const Case& c : cases) EXPECT_EQ(Value(TYPE_BCD, c.bytes, c.decimals).Text(), c.text) << Hex(c.bytes);
  // Digit nibbles above 9, and shapes outside L 1..64, D 0..2L-1, fail.
  struct Bad {
    Bytes bytes;
    int length, decimals;
  };
  Bytes largest(64, 0);
  largest[63] = 0x1C;
  EXPECT_EQ(Value(TYPE_BCD, largest).Text(), "1");
  for (const Bad& b : {Bad{{0x0A, 0x1C}, 2, 0}, Bad{{0xF1, 0x2C}, 2, 0}, Bad{{0x01, 0xBC}, 2, 0},
                       Bad{Bytes(65, 0), 65, 0}, Bad{{0x00, 0x1C}, 2, 4}, Bad{{0x00, 0x1C}, 2, -1},
                       Bad{{0x00, 0x1C}, 0, 0}, Bad{{0x5C}, 1, 2}}) {
    Bytes bytes = b.bytes;
    CRfcData data(1);
    data.Init(bytes.data(), TYPE_BCD, b.length, b.decimals);
    char text[140];
    EXPECT_EQ(data.BCD2Str(text, bytes.data()), 0) << Hex(b.bytes) << " D=" << b.decimals;
    EXPECT_EQ(Thrown([&] { static_cast<void>(static_cast<CSTR>(data)); }), kFromPack);
    EXPECT_EQ(bytes, b.bytes);
  }
}

TEST(RfcData, PackedStoring) {
  struct Case {
    int length, decimals;
    const char* text;
    const char* bytes;  // nullptr: refused, the value keeps 11 11 ...
  };
  const Case cases[] = {
      {2, 0, "12.7", "01 2C"},         // the fraction is dropped without D
      {3, 2, "-3.14159", "00 31 4D"},  // extra fraction digits are cut, not rounded
      {3, 2, "5", "00 50 0C"}, {3, 2, "+1.5", "00 15 0C"}, {3, 2, "1.234", "00 12 3C"},
      {3, 2, "", "00 00 0C"}, {3, 2, "123", "12 30 0C"}, {3, 2, "1234", nullptr},
      {2, 0, "-007", "00 7D"},  // leading zeros after the sign are dropped first
      {2, 0, "000", "00 0C"}, {2, 0, "+0042", "04 2C"}, {2, 1, "-0.5", "00 5D"},
      {2, 0, "+00001", "00 1C"}, {2, 0, "0000001", nullptr},  // beyond the copy of 2L+3
      {3, 0, "1.-2", "00 00 1C"},  // without decimals the fraction is never read
      {3, 2, "1.-2", nullptr}, {3, 0, "12-", nullptr}, {3, 0, "1-2", nullptr},
      {3, 0, "+-5", nullptr}, {3, 0, "--1", nullptr}, {3, 0, "12a", nullptr}, {3, 0, "0x1", nullptr},
  };
  for (const Case& c : cases) {
    Value v(TYPE_BCD, Bytes(static_cast<size_t>(c.length), 0x11), c.decimals);
    EXPECT_EQ(Thrown([&] { v.data = c.text; }), c.bytes != nullptr ? "" : kToPack) << c.text;
    EXPECT_EQ(v.HexBytes(), c.bytes != nullptr ? c.bytes : Hex(Bytes(static_cast<size_t>(c.length), 0x11)));
  }
  Value too_wide(TYPE_BCD, 65);  // beyond 64 bytes nothing is stored
  EXPECT_EQ(Thrown([&] { too_wide.data = "1"; }), kToPack);
  Value largest(TYPE_BCD, 64);
  largest.data = "-9";
  EXPECT_EQ(largest.Text(), "-9");
  Value null_text(TYPE_BCD, Bytes{0x99, 0x9D});
  null_text.data = static_cast<CSTR>(nullptr);  // counts as the empty text
  EXPECT_EQ(null_text.HexBytes(), "00 0C");

  // The packing step itself takes a blank as the digit 0 and writes it back.
  unsigned char bcd[3] = {};
  CRfcData data(1);
  data.Init(bcd, TYPE_BCD, 3, 0);
  char text[] = "1 2 ";
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "01 02 0C");
  EXPECT_STREQ(text, "1020");
  data.Init(bcd, TYPE_BCD, 65, 0);
  EXPECT_EQ(data.Str2BCD(text, bcd), 0);
  data.Init(bcd, TYPE_BCD, 1, 0);  // more digits than nibbles
  char many[] = "123";
  EXPECT_EQ(data.Str2BCD(many, bcd), 0);
}

// Every shape converts: the smallest negative unit and the negative value of
// all nines give their texts, which assign back to the same bytes.
TEST(RfcData, EveryPackedShapeReadsAndAssignsBack) {
  for (int length = 1; length <= 64; ++length) {
    const int digits = 2 * length - 1;
    for (int decimals = 0; decimals <= digits; ++decimals) {
      const std::string integer(static_cast<size_t>(digits - decimals), '9');
      const std::string fraction(static_cast<size_t>(decimals), '9');
      const std::string nines = "-" + (integer.empty() ? "0" : integer) + (decimals > 0 ? "." + fraction : "");
      const std::string unit = decimals > 0 ? "-0." + std::string(static_cast<size_t>(decimals - 1), '0') + "1" : "-1";
      Bytes all(static_cast<size_t>(length), 0x99), one(static_cast<size_t>(length), 0);
      all.back() = 0x9D;
      one.back() = 0x1D;
      for (const auto& [bytes, text] : {std::pair{all, nines}, std::pair{one, unit}}) {
        Value value(TYPE_BCD, bytes, decimals);
        ASSERT_EQ(value.Text(), text) << "L=" << length << " D=" << decimals;
        std::fill(value.bytes.begin(), value.bytes.end(), 0);
        value.data = text.c_str();
        ASSERT_EQ(value.bytes, bytes) << text;
      }
      if (decimals == digits) {
        // Str2BCD takes no integer digit here, not even the 0 the text shows.
        Value value(TYPE_BCD, Bytes(static_cast<size_t>(length), 0x77), decimals);
        std::string zero = "0." + std::string(static_cast<size_t>(decimals), '1');
        EXPECT_EQ(value.data.Str2BCD(zero.data(), value.bytes.data()), 0);
        EXPECT_EQ(value.bytes, Bytes(static_cast<size_t>(length), 0x77));
        EXPECT_EQ(value.data.Str2BCD(zero.data() + 1, value.bytes.data()), 1);
      }
    }
  }
}

TEST(RfcData, PackedFromAndToNumbers) {
  Value v(TYPE_BCD, 3, 2);
  v.data = 5;
  EXPECT_EQ(v.HexBytes() + " " + v.Text(), "00 50 0C 5.00");
  v.data = -123;
  EXPECT_EQ(Thrown([&] { v.data = 1000; }), kToPack);
  EXPECT_EQ(v.HexBytes(), "12 30 0D");
  Value big(TYPE_BCD, 6);
  big.data = INT32_MIN;
  EXPECT_EQ(big.Text(), "-2147483648");

  Value negative(TYPE_BCD, Bytes{0x01, 0x27, 0x5D}, 2);  // -12.75
  EXPECT_EQ(static_cast<RFC_INT>(negative.data), -12);
  EXPECT_EQ(static_cast<RFC_INT2>(negative.data), -12);
  EXPECT_EQ(static_cast<RFC_INT1>(negative.data), 0xF4);  // low 8 bits of -12
  EXPECT_DOUBLE_EQ(static_cast<RFC_FLOAT>(negative.data), -12.75);
  Value wide(TYPE_BCD, Bytes{0x00, 0x07, 0x00, 0x00, 0x0C});
  EXPECT_EQ(static_cast<RFC_INT>(wide.data), 700000);
  EXPECT_EQ(static_cast<RFC_INT2>(wide.data), 32767);  // out of range: the limit
  Value huge(TYPE_BCD, Bytes{0x09, 0x99, 0x99, 0x99, 0x99, 0x9D});
  EXPECT_EQ(static_cast<RFC_INT>(huge.data), INT32_MIN);
  Value minus(TYPE_BCD, Bytes{0x00, 0x0D});  // "-": nothing readable
  EXPECT_EQ(static_cast<RFC_INT>(minus.data), 0);
  EXPECT_EQ(static_cast<RFC_FLOAT>(minus.data), 0.0);
}

TEST(RfcData, AssignmentToTheOtherTypes) {
  struct Case {
    int type;
    Bytes before;
    std::function<void(CRfcData&)> assign;
    Bytes after;
    int native_order;
  };
  auto integer = [](RFC_INT n) { return [n](CRfcData& d) { d = n; }; };
  auto text = [](const char* t) { return [t](CRfcData& d) { d = t; }; };
  const Case cases[] = {
      // NUM: zeros inserted after the sign; longer numbers keep their left part.
      {TYPE_NUM, Raw("xxxxx"), integer(42), Raw("00042"), 1}, {TYPE_NUM, Raw("xxxxx"), integer(-12), Raw("-0012"), 1},
      {TYPE_NUM, Raw("xxx"), integer(12345), Raw("123"), 1}, {TYPE_NUM, Raw("xxx"), integer(-45), Raw("-45"), 1},
      {TYPE_NUM, Raw("xxxxx"), text("42"), Raw("00042"), 1}, {TYPE_NUM, Raw("xxxxx"), text(""), Raw("00000"), 1},
      // CHAR: blank-padded, no terminator.
      {TYPE_CHAR, Raw("xxxx"), text("ab"), Raw("ab  "), 1}, {TYPE_CHAR, Raw("xxxx"), text("wxyz"), Raw("wxyz"), 1},
      // DATE and TIME: only what is given, unchecked.
      {TYPE_DATE, Raw("19991231"), text("2003"), Raw("20031231"), 1},
      {TYPE_DATE, Raw("19991231"), text("2004050607"), Raw("20040506"), 1},
      {TYPE_DATE, Raw("19991231"), text("ab"), Raw("ab991231"), 1}, {TYPE_TIME, Raw("235959"), text("12"), Raw("125959"), 1},
      // BYTE: big-endian from the end, at most four bytes.
      {TYPE_BYTE, {0xAA, 0xAA}, integer(258), {0x01, 0x02}, 1},
      {TYPE_BYTE, Bytes(6, 0xAA), integer(0x01020304), {0xAA, 0xAA, 1, 2, 3, 4}, 1},
      {TYPE_BYTE, Bytes(4, 0xAA), integer(-1), {0, 0, 0, 0xFF}, 1}, {TYPE_BYTE, {0xAA}, integer(0x1234), {0x34}, 1},
      // Integers in both orders, the small ones cut to their width.
      {TYPE_INT, Bytes(4, 0), integer(0x01020304), NativeBytes<RFC_INT>(0x01020304), 1},
      {TYPE_INT, Bytes(4, 0), integer(0x01020304), {1, 2, 3, 4}, 0},
      {TYPE_INT2, Bytes(2, 0), integer(0x12345), {0x23, 0x45}, 0}, {TYPE_INT1, Bytes(1, 0), integer(0x1FF), {0xFF}, 1},
  };
  for (const Case& c : cases) {
    Value v(c.type, c.before, 0, c.native_order);
    c.assign(v.data);
    EXPECT_EQ(v.HexBytes(), Hex(c.after)) << c.type << " " << Hex(c.before);
  }
  // The deliberate no-ops: integers to text types and FLOAT, texts to the
  // binary types, anything to ITAB.
  const Bytes kept{1, 2, 3, 4, 5, 6, 7, 8};
  for (int type : {TYPE_CHAR, TYPE_DATE, TYPE_TIME, TYPE_FLOAT, TYPE_ITAB}) {
    Value v(type, kept);
    v.data = 5;
    EXPECT_EQ(v.bytes, kept) << type;
  }
  for (int type : {TYPE_BYTE, TYPE_FLOAT, TYPE_INT, TYPE_INT2, TYPE_INT1, TYPE_ITAB}) {
    Value v(type, kept);
    v.data = "12";
    EXPECT_EQ(v.bytes, kept) << type;
  }
}

TEST(RfcData, Readings) {
  struct Case {
    int type;
    Bytes bytes;
    int native_order;
    RFC_INT as_int;
    RFC_INT2 as_int2;
    RFC_INT1 as_int1;
    RFC_FLOAT as_float;
  };
  const Case cases[] = {
      // Text types have no number.
      {TYPE_CHAR, Raw("12345678"), 1, 0, 0, 0, 0.0}, {TYPE_DATE, Raw("12345678"), 1, 0, 0, 0, 0.0},
      {TYPE_TIME, Raw("123456"), 1, 0, 0, 0, 0.0},
      // NUM reads as an integer only; blanks are skipped, nothing gives 0.
      {TYPE_NUM, Raw("0042 "), 1, 42, 0, 0, 0.0}, {TYPE_NUM, Raw("  -7x"), 1, -7, 0, 0, 0.0},
      {TYPE_NUM, Raw("a1"), 1, 0, 0, 0, 0.0}, {TYPE_NUM, Raw("\t\r+5"), 1, 5, 0, 0, 0.0}, {TYPE_NUM, Raw("999999999999"), 1, INT32_MAX, 0, 0, 0.0},
      // BYTE: the last four and two bytes, but the first one.
      {TYPE_BYTE, {0x01, 0x02}, 1, 258, 258, 1, 0.0},
      {TYPE_BYTE, {0x09, 0x01, 0x02, 0x03, 0x04}, 1, 0x01020304, 0x0304, 9, 0.0},
      {TYPE_BYTE, {0xFF, 0xFE}, 1, 0xFFFE, -2, 0xFF, 0.0},
      // An integer cannot be read as a float or a small integer.
      {TYPE_INT, NativeBytes<RFC_INT>(77), 1, 77, 0, 0, 0.0}, {TYPE_INT, {0, 0, 1, 2}, 0, 258, 0, 0, 0.0},
      {TYPE_FLOAT, NativeBytes<double>(3.25), 1, 0, 0, 0, 3.25}, {TYPE_INT1, {200}, 1, 200, 200, 200, 0.0},
      // INT2 extends its sign only in the machine's own order.
      {TYPE_INT2, NativeBytes<RFC_INT2>(-2), 1, -2, -2, 0, 0.0},
      {TYPE_INT2, {0xFF, 0xFE}, 0, 0xFFFE, -2, 0, 0.0}, {TYPE_ITAB, {1, 2}, 1, 0, 0, 0, 0.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.type) + ": " + Hex(c.bytes));
    Value v(c.type, c.bytes, 0, c.native_order);
    EXPECT_EQ(static_cast<RFC_INT>(v.data), c.as_int);
    EXPECT_EQ(static_cast<RFC_INT2>(v.data), c.as_int2);
    EXPECT_EQ(static_cast<RFC_INT1>(v.data), c.as_int1);
    EXPECT_EQ(static_cast<RFC_FLOAT>(v.data), c.as_float);
  }
  Bytes reversed = NativeBytes<double>(-1.5);
  std::reverse(reversed.begin(), reversed.end());
  EXPECT_EQ(static_cast<RFC_FLOAT>(Value(TYPE_FLOAT, reversed, 0, 0).data), -1.5);
  // Unbound, or bound to no bytes: every reading is nothing, every assignment
  // and copy changes nothing.
  unsigned char byte = 7;
  for (int type : {-1, TYPE_NUM, TYPE_BYTE, TYPE_CHAR, TYPE_INT1}) {
    CRfcData data(1), empty(1), unbound(1);
    empty.Init(&byte, TYPE_BYTE, 0, 0);
    if (type >= 0) data.Init(&byte, type, type == TYPE_INT1 ? 1 : 0, 0);
    if (type < 0) data = "5";
    if (type != TYPE_INT1) data = 5;
    data.Assign(type < 0 ? empty : unbound);
    data.Assign(empty);
    EXPECT_EQ(static_cast<RFC_INT>(data) + static_cast<RFC_INT2>(data) + static_cast<RFC_INT1>(data) +
                  static_cast<RFC_FLOAT>(data) + byte, type == TYPE_INT1 ? 28 : 7) << type;
    EXPECT_STREQ(static_cast<CSTR>(data), type == TYPE_INT1 ? "7" : "") << type;
  }
  Value v(TYPE_CHAR, Raw("abc"));
  CSTR first = v.data;
  std::memcpy(v.bytes.data(), "xyz", 3);
  EXPECT_STREQ(first, "abc");  // a copy, valid until the next conversion
  EXPECT_STREQ(static_cast<CSTR>(v.data), "xyz");
}

// The text of every type, read as a received table cell is read, at the
// edges of each type and in both byte orders.
TEST(RfcData, TextOfEachTypeInBothByteOrders) {
  const struct {
    int type, length, decimals;
    const char* hex;  // as the bytes arrive, big-endian
    const char* text;
  } cases[] = {
      {TYPE_INT, 4, 0, "80000000", "-2147483648"}, {TYPE_INT, 4, 0, "7FFFFFFF", "2147483647"},
      {TYPE_INT, 4, 0, "0000000C", "12"}, {TYPE_INT, 4, 0, "FFFFFFFE", "-2"},
      {TYPE_INT, 4, 0, "00000000", "0"}, {TYPE_INT2, 2, 0, "8000", "-32768"},
      {TYPE_INT2, 2, 0, "7FFF", "32767"}, {TYPE_INT2, 2, 0, "FFFE", "-2"},
      {TYPE_INT1, 1, 0, "FF", "255"}, {TYPE_INT1, 1, 0, "00", "0"},
      {TYPE_FLOAT, 8, 0, "3FB999999999999A", "0.1"}, {TYPE_FLOAT, 8, 0, "8000000000000000", "-0"},
      {TYPE_FLOAT, 8, 0, "0000000000000000", "0"}, {TYPE_FLOAT, 8, 0, "01A56E1FC2F8F359", "1e-300"},
      {TYPE_FLOAT, 8, 0, "7FEFFFFFFFFFFFFF", "1.7976931348623157e+308"},
      {TYPE_FLOAT, 8, 0, "4004000000000000", "2.5"}, {TYPE_FLOAT, 8, 0, "C00A000000000000", "-3.25"},
      {TYPE_FLOAT, 8, 0, "4415AF1D78B58C40", "1e+20"}, {TYPE_FLOAT, 8, 0, "7FF0000000000000", "INF"},
      {TYPE_FLOAT, 8, 0, "FFF0000000000000", "-INF"}, {TYPE_FLOAT, 8, 0, "7FF8000000000000", "NaN"},
      {TYPE_FLOAT, 8, 0, "FFF0000000000001", "NaN"}, {TYPE_BYTE, 1, 0, "00", "00"},
      {TYPE_BYTE, 4, 0, "0A0B0C0D", "0A0B0C0D"},
      {TYPE_BYTE, 16, 0, "00112233445566778899AABBCCDDEEFF", "00112233445566778899AABBCCDDEEFF"},
      {TYPE_BCD, 2, 3, "125C", "0.125"}, {TYPE_BCD, 2, 3, "125D", "-0.125"},
      {TYPE_BCD, 1, 1, "5C", "0.5"}, {TYPE_BCD, 1, 1, "0D", "-0.0"},
      // Trailing blanks go, leading ones and zeros stay; blank dates and times are empty.
      {TYPE_CHAR, 5, 0, "2061622020", " ab"}, {TYPE_NUM, 5, 0, "3030343220", "0042"},
      {TYPE_DATE, 8, 0, "2020202020202020", ""}, {TYPE_DATE, 8, 0, "3230303320202020", "2003    "},
      {TYPE_TIME, 6, 0, "202020202020", ""}, {TYPE_TIME, 6, 0, "313430333039", "140309"},
      {TYPE_ITAB, 2, 0, "3132", ""}, {99, 2, 0, "3132", ""},
  };
  const uint16_t probe = 1;
  const bool little_endian = *reinterpret_cast<const unsigned char*>(&probe) == 1;
  for (const auto& c : cases) {
    for (int native : {0, 1}) {
      Bytes bytes;
      for (size_t i = 0; i + 1 < std::strlen(c.hex); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(std::string(c.hex + i, 2), nullptr, 16)));
      }
      const bool number = c.type == TYPE_INT || c.type == TYPE_INT2 || c.type == TYPE_FLOAT;
      if (native == 1 && number && little_endian) std::reverse(bytes.begin(), bytes.end());
      CRfcData data(native);
      data.Init(bytes.data(), c.type, c.length, c.decimals);
      EXPECT_STREQ(static_cast<CSTR>(data), c.text) << c.hex << " type " << c.type << " native " << native;
    }
  }
}

TEST(RfcData, AssignCopiesWithConversionByTheTargetsType) {
  struct Case {
    int to_type;
    Bytes to;
    int from_type;
    Bytes from, after;
  };
  const Case cases[] = {
      // Raw copies of the target's length, never more than the source has.
      {TYPE_NUM, Raw("abcd"), TYPE_CHAR, Raw("wxyz"), Raw("wxyz")},
      {TYPE_NUM, Raw("abcd"), TYPE_CHAR, Raw("wx"), Raw("wxcd")},
      {TYPE_BCD, {0, 0}, TYPE_BCD, {0x12, 0x3C}, {0x12, 0x3C}},
      // FLOAT takes the source's number by the source's type.
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT1, {7}, NativeBytes<double>(7.0)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT2, NativeBytes<RFC_INT2>(-300), NativeBytes<double>(-300)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT, NativeBytes<RFC_INT>(123456), NativeBytes<double>(123456)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_FLOAT, NativeBytes<double>(0.5), NativeBytes<double>(0.5)},
      {TYPE_FLOAT, Bytes(8, 9), TYPE_BCD, {0x12, 0x3C}, Bytes(8, 9)},
      // INT and INT2 take their readings; INT1 one raw byte; ITAB nothing.
      {TYPE_INT, Bytes(4, 0), TYPE_BCD, {0x04, 0x2D}, NativeBytes<RFC_INT>(-42)},
      {TYPE_INT2, Bytes(2, 9), TYPE_BCD, {0x04, 0x2D}, NativeBytes<RFC_INT2>(-42)},
      {TYPE_INT2, Bytes(2, 9), TYPE_INT, NativeBytes<RFC_INT>(1000), Bytes(2, 0)},
      {TYPE_INT1, {0}, TYPE_BYTE, {0x80, 0x01}, {0x80}}, {TYPE_ITAB, {5}, TYPE_BYTE, {0x80, 0x01}, {5}},
  };
  for (const Case& c : cases) {
    Value to(c.to_type, c.to);
    Value from(c.from_type, c.from);
    to.data.Assign(from.data);
    EXPECT_EQ(to.HexBytes(), Hex(c.after)) << c.to_type << " from " << c.from_type;
  }
  // ToNativeOrder turns the numbers around once.
  struct Order {
    int type;
    Bytes bytes, after;
  };
  for (const Order& c : {Order{TYPE_INT, {0, 0, 1, 2}, {2, 1, 0, 0}}, Order{TYPE_INT2, {1, 2}, {2, 1}},
                         Order{TYPE_FLOAT, {1, 2, 3, 4, 5, 6, 7, 8}, {8, 7, 6, 5, 4, 3, 2, 1}},
                         Order{TYPE_CHAR, Raw("ab"), Raw("ab")}}) {
    Value v(c.type, c.bytes, 0, 0);
    v.data.ToNativeOrder();
    EXPECT_EQ(v.data.GetNativeOrder(), 1);
    v.data.ToNativeOrder();
    EXPECT_EQ(v.bytes, c.after) << c.type;
  }
}

TEST(RfcData, TraceLinesOfTheConversions) {
  // The small integer readings trace every call; the others only failures.
  Value small(TYPE_INT1, Bytes{3});
  auto readings = RunTraced([&] {
    static_cast<void>(static_cast<RFC_INT1>(small.data));
    static_cast<void>(static_cast<RFC_INT2>(small.data));
    static_cast<void>(static_cast<RFC_INT>(small.data));
    static_cast<void>(static_cast<RFC_FLOAT>(small.data));
  });
  EXPECT_THAT(readings.lines, ElementsAre("CRfcData::operator RFC_INT1(void) called",
                                          "CRfcData::operator RFC_INT2(void) called"));
  Value packed(TYPE_BCD, 3, 2);
  auto quiet = RunTraced([&] {
    packed.data = "1.5";
    packed.data = 2;
    static_cast<void>(static_cast<CSTR>(packed.data));
    static_cast<void>(static_cast<RFC_FLOAT>(packed.data));
  });
  EXPECT_FALSE(quiet.file_exists);

  // A failed packed reading: BCD2Str's own line, then the operation's entry
  // with the wording of the assignment direction; the other direction is thrown.
  struct Read {
    const char* operation;
    void (*read)(CRfcData&);
    bool own_line;
  };
  const Read reads[] = {
      {"CRfcData::operator RFC_INT(void) called", [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT>(d)); }, false},
      {"CRfcData::operator RFC_INT2(void) called", [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT2>(d)); }, true},
      {"CRfcData::operator RFC_INT1(void) called", [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT1>(d)); }, true},
      {"CRfcData::operator RFC_FLOAT(void) called", [](CRfcData& d) { static_cast<void>(static_cast<RFC_FLOAT>(d)); }, false},
      {"CRfcData::operator CSTR(void) called", [](CRfcData& d) { static_cast<void>(static_cast<CSTR>(d)); }, false},
  };
  for (const Read& r : reads) {
    Value bad(TYPE_BCD, Bytes{0x0A, 0x1C});
    auto run = RunTraced([&] { r.read(bad.data); });
    EXPECT_EQ(run.thrown, kFromPack) << r.operation;
    EXPECT_THAT(rfc_test::Tail(run, 7),
                ElementsAre("CRfcData::BCD2Str called", "", "", "", kHeader, r.operation, kToPack));
    EXPECT_EQ(run.lines.size(), r.own_line ? 8u : 7u) << r.operation;
  }
  // Failed assignments: packed from a number and a text, and a text too long
  // for NUM or CHAR (traced with the length, thrown without it).
  Value target(TYPE_BCD, 2);
  rfc_test::ExpectTracedFailure([&] { target.data = 12345; }, "CRfcData::operator=(RFC_INT) called", kToPack);
  rfc_test::ExpectTracedFailure([&] { target.data = "1x"; }, "CRfcData::operator=(CSTR) called", kToPack);
  auto off = RunTraced([&] { target.data = "1x"; }, false);
  EXPECT_EQ(off.thrown, kToPack);
  EXPECT_FALSE(off.file_exists);
  for (int type : {TYPE_NUM, TYPE_CHAR}) {
    Value v(type, Raw("00777"));
    rfc_test::ExpectTracedFailure([&] { v.data = "123456"; }, "CRfcData::operator=(CSTR) called",
                                  std::string(kTooLong) + "5", kTooLong);
    EXPECT_EQ(v.bytes, Raw("00777"));
  }
  unsigned char byte = 0;
  CRfcData unsized(1);
  unsized.Init(&byte, TYPE_CHAR, -1, 0);  // without a length even the empty text is too long
  EXPECT_EQ(Thrown([&] { unsized = ""; }), kTooLong);
}

}  // namespace
