// CRfcData: the type table, the packed-decimal rules with their examples,
// every assignment and reading conversion with its deliberate gaps, the copy
// with conversion, byte order, and the trace lines of failed conversions.

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

using ::testing::ElementsAre;
using ::testing::StartsWith;
using Bytes = std::vector<unsigned char>;
using rfc_test::RunTraced;

constexpr const char kToPack[] = "CRfcData: Conversion to PACK type (BCD) failed";
constexpr const char kFromPack[] = "CRfcData: Conversion from PACK type (BCD) failed";
constexpr const char kTooLong[] = "CRfcData:operator=(CSTR) Input string too long, exceeding ";
const auto kHeader = StartsWith("Rfc Class Library Trace at   ");

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
  std::string Chars() const { return std::string(bytes.begin(), bytes.end()); }

  Bytes bytes;
  CRfcData data;
};

// The thrown text of `code`, or "" when nothing was thrown.
std::string Thrown(const std::function<void()>& code) {
  try {
    code();
  } catch (const char* text) {
    return text;
  }
  return "";
}

TEST(RfcData, TypeTableAndBinding) {
  struct Case {
    int type, given, length;
  };
  for (const Case& c :
       {Case{TYPE_CHAR, 13, 13}, Case{TYPE_BCD, 5, 5}, Case{TYPE_BYTE, 3, 3}, Case{TYPE_NUM, 7, 7},
        Case{TYPE_DATE, 3, 8}, Case{TYPE_FLOAT, 0, 8}, Case{TYPE_TIME, 99, 6}, Case{TYPE_INT, 0, 4},
        Case{TYPE_INT2, 0, 2}, Case{TYPE_INT1, 0, 1}, Case{TYPE_ITAB, 10, -1}, Case{42, 10, -1}}) {
    EXPECT_EQ(RfcFixedLength(c.type, c.given), c.length) << c.type;
    unsigned char buffer[16];
    CRfcData data(1);
    data.Init(buffer, c.type, c.given, 3);
    int type = -9, length = -9, decimals = -9;
    data.GetInfo(type, length, decimals);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(length, c.length) << c.type;
    EXPECT_EQ(decimals, 3);
    EXPECT_EQ(data.GetData(), buffer);
  }
}

TEST(RfcData, ClearedForms) {
  struct Case {
    int type;
    Bytes before;
    std::string after;
  };
  const Case cases[] = {
      {TYPE_CHAR, {1, 2, 3}, "20 20 20"}, {TYPE_DATE, Bytes(8, 9), Hex(Raw("00000000"))},
      {TYPE_TIME, Bytes(6, 9), Hex(Raw("000000"))}, {TYPE_NUM, Bytes(4, 9), "30 30 30 30"},
      {TYPE_BCD, {0x12, 0x3C}, "00 00"}, {TYPE_BYTE, {0xFF, 0xFF}, "00 00"},
      {TYPE_FLOAT, Bytes(8, 0xAA), Hex(Bytes(8, 0))}, {TYPE_INT, Bytes(4, 0xAA), "00 00 00 00"},
      {TYPE_INT2, Bytes(2, 0xAA), "00 00"}, {TYPE_INT1, {0xAA}, "00"}, {TYPE_ITAB, {7, 7}, "07 07"},
      {77, {7, 7}, "07 07"},
  };
  for (const Case& c : cases) {
    Value v(c.type, c.before);
    v.data.ClearValue();
    EXPECT_EQ(v.HexBytes(), c.after) << c.type;
  }
}

TEST(RfcData, PackedReading) {
  struct Case {
    Bytes bytes;
    int decimals;
    const char* text;
  };
  const Case cases[] = {
      {{0x00, 0x12, 0x3C}, 2, "1.23"}, {{0x00, 0x01, 0x2C}, 2, "0.12"},
      {{0x00, 0x00, 0x0C}, 0, "0"}, {{0x00, 0x00, 0x0C}, 2, "0.00"}, {{0x00, 0x1D}, 0, "-1"},
      {{0x15, 0x0C}, 2, "1.50"},  // trailing zeros stay
      {{0x00, 0x5D}, 2, "-0.05"}, {{0x00, 0x0D}, 0, "-"},  // negative zero, kept
      {{0x00, 0x00, 0x0D}, 2, "-0.00"},
      // Only D is negative; the sign nibble is never checked further.
      {{0x00, 0x7F}, 0, "7"}, {{0x00, 0x7A}, 0, "7"}, {{0x00, 0x70}, 0, "7"},
      {{0x01, 0x2E}, 0, "12"}, {{0x00, 0x1C}, 2, "0.01"},  // 2L-2 decimals leave one integer place
  };
  for (const Case& c : cases) {
    Value v(TYPE_BCD, c.bytes, c.decimals);
    EXPECT_EQ(v.Text(), c.text) << Hex(c.bytes);
  }
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
                       Bad{{0x00, 0x1C}, 0, 0}}) {
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
      {3, 2, "5", "00 50 0C"},         // missing fraction digits are zeros
      {3, 2, "+1.5", "00 15 0C"}, {3, 2, "1.234", "00 12 3C"},
      {3, 2, "", "00 00 0C"},                                   // empty: positive zero
      {3, 2, "123", "12 30 0C"}, {3, 2, "1234", nullptr},  // four integer digits, three fit
      {2, 0, "-007", "00 7D"},  // leading zeros after the sign are dropped first
      {2, 0, "000", "00 0C"}, {2, 0, "+0042", "04 2C"},
      {2, 1, "-0.5", "00 5D"}, {2, 0, "+00001", "00 1C"},
      {2, 0, "0000001", nullptr},  // longer than the working copy of 2L+3
      {3, 0, "1.-2", "00 00 1C"},  // without decimals the fraction is never read
      {3, 2, "1.-2", nullptr}, {3, 0, "12-", nullptr},
      {3, 0, "1-2", nullptr}, {3, 0, "+-5", nullptr},
      {3, 0, "--1", nullptr}, {3, 0, "12a", nullptr}, {3, 0, "0x1", nullptr},
  };
  for (const Case& c : cases) {
    Value v(TYPE_BCD, Bytes(static_cast<size_t>(c.length), 0x11), c.decimals);
    const std::string thrown = Thrown([&] { v.data = c.text; });
    if (c.bytes != nullptr) {
      EXPECT_EQ(thrown, "") << c.text;
      EXPECT_EQ(v.HexBytes(), c.bytes) << c.text;
    } else {
      EXPECT_EQ(thrown, kToPack) << c.text;
      EXPECT_EQ(v.bytes, Bytes(static_cast<size_t>(c.length), 0x11)) << c.text;
    }
  }
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
  bcd[2] = 0x1C;
  data.Init(bcd, TYPE_BCD, 65, 0);
  EXPECT_EQ(data.Str2BCD(text, bcd), 0);
}

TEST(RfcData, PackedFromAndToNumbers) {
  Value v(TYPE_BCD, 3, 2);
  v.data = 5;
  EXPECT_EQ(v.HexBytes(), "00 50 0C");
  EXPECT_EQ(v.Text(), "5.00");
  v.data = -123;
  EXPECT_EQ(v.HexBytes(), "12 30 0D");
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
      {TYPE_NUM, Raw("xxxxx"), integer(42), Raw("00042"), 1},
      {TYPE_NUM, Raw("xxxxx"), integer(-12), Raw("-0012"), 1},
      {TYPE_NUM, Raw("xxx"), integer(12345), Raw("123"), 1},
      {TYPE_NUM, Raw("xxx"), integer(-45), Raw("-45"), 1},
      {TYPE_NUM, Raw("xxxxx"), text("42"), Raw("00042"), 1},
      {TYPE_NUM, Raw("xxxxx"), text(""), Raw("00000"), 1},
      // CHAR: blank-padded, no terminator.
      {TYPE_CHAR, Raw("xxxx"), text("ab"), Raw("ab  "), 1},
      {TYPE_CHAR, Raw("xxxx"), text("wxyz"), Raw("wxyz"), 1},
      // DATE and TIME: only what is given, unchecked.
      {TYPE_DATE, Raw("19991231"), text("2003"), Raw("20031231"), 1},
      {TYPE_DATE, Raw("19991231"), text("2004050607"), Raw("20040506"), 1},
      {TYPE_DATE, Raw("19991231"), text("ab"), Raw("ab991231"), 1},
      {TYPE_TIME, Raw("235959"), text("12"), Raw("125959"), 1},
      // BYTE: big-endian from the end, at most four bytes.
      {TYPE_BYTE, {0xAA, 0xAA}, integer(258), {0x01, 0x02}, 1},
      {TYPE_BYTE, Bytes(6, 0xAA), integer(0x01020304), {0xAA, 0xAA, 1, 2, 3, 4}, 1},
      {TYPE_BYTE, Bytes(4, 0xAA), integer(-1), {0, 0, 0, 0xFF}, 1},
      {TYPE_BYTE, {0xAA}, integer(0x1234), {0x34}, 1},
      // Integers in both orders, the small ones cut to their width.
      {TYPE_INT, Bytes(4, 0), integer(0x01020304), NativeBytes<RFC_INT>(0x01020304), 1},
      {TYPE_INT, Bytes(4, 0), integer(0x01020304), {1, 2, 3, 4}, 0},
      {TYPE_INT2, Bytes(2, 0), integer(0x12345), {0x23, 0x45}, 0},
      {TYPE_INT1, Bytes(1, 0), integer(0x1FF), {0xFF}, 1},
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

TEST(RfcData, TooLongTextIsRefusedAndTracedWithTheLength) {
  for (int type : {TYPE_NUM, TYPE_CHAR}) {
    Value v(type, Raw("00777"));
    auto run = RunTraced([&] { v.data = "123456"; });
    EXPECT_EQ(run.thrown, kTooLong);
    EXPECT_EQ(v.Chars(), "00777");
    EXPECT_THAT(run.lines, ElementsAre("", "", "", kHeader, "CRfcData::operator=(CSTR) called",
                                       std::string(kTooLong) + "5"));
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
      {TYPE_NUM, Raw("a1"), 1, 0, 0, 0, 0.0},
      {TYPE_NUM, Raw("999999999999"), 1, INT32_MAX, 0, 0, 0.0},
      // BYTE: the last four and two bytes, but the first one.
      {TYPE_BYTE, {0x01, 0x02}, 1, 258, 258, 1, 0.0},
      {TYPE_BYTE, {0x09, 0x01, 0x02, 0x03, 0x04}, 1, 0x01020304, 0x0304, 9, 0.0},
      {TYPE_BYTE, {0xFF, 0xFE}, 1, 0xFFFE, -2, 0xFF, 0.0},
      // An integer cannot be read as a float or a small integer.
      {TYPE_INT, NativeBytes<RFC_INT>(77), 1, 77, 0, 0, 0.0},
      {TYPE_INT, {0, 0, 1, 2}, 0, 258, 0, 0, 0.0},
      {TYPE_FLOAT, NativeBytes<double>(3.25), 1, 0, 0, 0, 3.25},
      {TYPE_INT1, {200}, 1, 200, 200, 200, 0.0},
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
  CRfcData unbound(1);
  EXPECT_EQ(static_cast<RFC_INT>(unbound), 0);
  EXPECT_STREQ(static_cast<CSTR>(unbound), "");
}

TEST(RfcData, TextReadings) {
  struct Case {
    int type;
    std::string bytes;
    const char* text;
  };
  const Case cases[] = {
      {TYPE_CHAR, " ab  ", " ab"}, {TYPE_NUM, "0042 ", "0042"},  // leading zeros stay
      {TYPE_DATE, "        ", ""}, {TYPE_DATE, "2003    ", "2003    "},
      {TYPE_TIME, "      ", ""}, {TYPE_TIME, "140309", "140309"},
      {TYPE_ITAB, "12", ""}, {99, "12", ""},
  };
  for (const Case& c : cases) {
    Value v(c.type, Raw(c.bytes));
    EXPECT_EQ(v.Text(), c.text) << c.type << " '" << c.bytes << "'";
  }
  Value v(TYPE_CHAR, Raw("abc"));
  CSTR first = v.data;
  std::memcpy(v.bytes.data(), "xyz", 3);
  EXPECT_STREQ(first, "abc");  // a copy, valid until the next conversion
  EXPECT_STREQ(static_cast<CSTR>(v.data), "xyz");
}

TEST(RfcData, AssignCopiesWithConversionByTheTargetsType) {
  struct Case {
    int to_type;
    Bytes to;
    int from_type;
    Bytes from;
    Bytes after;
  };
  const Case cases[] = {
      // Raw copies of the target's length, never more than the source has.
      {TYPE_NUM, Raw("abcd"), TYPE_CHAR, Raw("wxyz"), Raw("wxyz")},
      {TYPE_NUM, Raw("abcd"), TYPE_CHAR, Raw("wx"), Raw("wxcd")},
      {TYPE_BCD, {0, 0}, TYPE_BCD, {0x12, 0x3C}, {0x12, 0x3C}},
      // FLOAT takes the source's number by the source's type.
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT1, {7}, NativeBytes<double>(7.0)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT2, NativeBytes<RFC_INT2>(-300), NativeBytes<double>(-300)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_INT, NativeBytes<RFC_INT>(123456),
      NativeBytes<double>(123456)},
      {TYPE_FLOAT, Bytes(8, 0), TYPE_FLOAT, NativeBytes<double>(0.5), NativeBytes<double>(0.5)},
      {TYPE_FLOAT, Bytes(8, 9), TYPE_BCD, {0x12, 0x3C}, Bytes(8, 9)},
      // INT and INT2 take their readings; INT1 one raw byte; ITAB nothing.
      {TYPE_INT, Bytes(4, 0), TYPE_BCD, {0x04, 0x2D}, NativeBytes<RFC_INT>(-42)},
      {TYPE_INT2, Bytes(2, 9), TYPE_BCD, {0x04, 0x2D}, NativeBytes<RFC_INT2>(-42)},
      {TYPE_INT2, Bytes(2, 9), TYPE_INT, NativeBytes<RFC_INT>(1000), Bytes(2, 0)},
      {TYPE_INT1, {0}, TYPE_BYTE, {0x80, 0x01}, {0x80}},
      {TYPE_ITAB, {5}, TYPE_BYTE, {0x80, 0x01}, {5}},
  };
  for (const Case& c : cases) {
    Value to(c.to_type, c.to);
    Value from(c.from_type, c.from);
    to.data.Assign(from.data);
    EXPECT_EQ(to.HexBytes(), Hex(c.after)) << c.to_type << " from " << c.from_type;
  }
}

TEST(RfcData, ToNativeOrderReversesOnce) {
  struct Case {
    int type;
    Bytes bytes, after;
  };
  for (const Case& c : {Case{TYPE_INT, {0, 0, 1, 2}, {2, 1, 0, 0}}, Case{TYPE_INT2, {1, 2}, {2, 1}},
                        Case{TYPE_FLOAT, {1, 2, 3, 4, 5, 6, 7, 8}, {8, 7, 6, 5, 4, 3, 2, 1}},
                        Case{TYPE_CHAR, Raw("ab"), Raw("ab")}}) {
    Value v(c.type, c.bytes, 0, 0);
    v.data.ToNativeOrder();
    EXPECT_EQ(v.data.GetNativeOrder(), 1);
    v.data.ToNativeOrder();  // already native
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
      {"CRfcData::operator RFC_INT(void) called",
      [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT>(d)); }, false},
      {"CRfcData::operator RFC_INT2(void) called",
      [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT2>(d)); }, true},
      {"CRfcData::operator RFC_INT1(void) called",
      [](CRfcData& d) { static_cast<void>(static_cast<RFC_INT1>(d)); }, true},
      {"CRfcData::operator RFC_FLOAT(void) called",
      [](CRfcData& d) { static_cast<void>(static_cast<RFC_FLOAT>(d)); }, false},
      {"CRfcData::operator CSTR(void) called",
      [](CRfcData& d) { static_cast<void>(static_cast<CSTR>(d)); }, false},
  };
  for (const Read& r : reads) {
    Value bad(TYPE_BCD, Bytes{0x0A, 0x1C});
    auto run = RunTraced([&] { r.read(bad.data); });
    EXPECT_EQ(run.thrown, kFromPack) << r.operation;
    std::vector<std::string> tail(run.lines.end() - std::min<size_t>(run.lines.size(), 7),
                                  run.lines.end());
    EXPECT_THAT(tail,
                ElementsAre("CRfcData::BCD2Str called", "", "", "", kHeader, r.operation, kToPack));
    EXPECT_EQ(run.lines.size(), r.own_line ? 8u : 7u) << r.operation;
  }
  // A failed packed assignment, and the same failure with the trace off.
  Value target(TYPE_BCD, 2);
  auto from_int = RunTraced([&] { target.data = 12345; });
  EXPECT_THAT(from_int.lines,
              ElementsAre("", "", "", kHeader, "CRfcData::operator=(RFC_INT) called", kToPack));
  auto from_text = RunTraced([&] { target.data = "1x"; });
  EXPECT_THAT(from_text.lines,
              ElementsAre("", "", "", kHeader, "CRfcData::operator=(CSTR) called", kToPack));
  auto off = RunTraced([&] { target.data = "1x"; }, false);
  EXPECT_EQ(off.thrown, kToPack);
  EXPECT_FALSE(off.file_exists);
}

}  // namespace
