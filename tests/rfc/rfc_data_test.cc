// CRfcData: the type table, every assignment and reading conversion, the
// packed-decimal rules with their examples, and the trace lines and texts of
// failed conversions.

#include "rfc/core/rfc_data.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/rfc/trace_capture.h"

namespace {

using ::testing::ElementsAre;
using rfc_test::RunTraced;
using Bytes = std::vector<unsigned char>;

constexpr const char kToPack[] = "CRfcData: Conversion to PACK type (BCD) failed";
constexpr const char kFromPack[] = "CRfcData: Conversion from PACK type (BCD) failed";
constexpr const char kTooLong[] = "CRfcData:operator=(CSTR) Input string too long, exceeding ";

std::string Hex(const Bytes& bytes) {
  std::string out;
  char part[4];
  for (unsigned char b : bytes) {
    std::snprintf(part, sizeof part, out.empty() ? "%02X" : " %02X", b);
    out += part;
  }
  return out;
}

// A value bound to bytes of its own.
struct Value {
  Value(int type, int length, int decimals = 0, int native_order = 1)
      : bytes(static_cast<size_t>(length > 0 ? length : 8), 0), data(native_order) {
    data.Init(bytes.data(), type, length, decimals);
  }
  Value(int type, const Bytes& initial, int decimals = 0, int native_order = 1)
      : bytes(initial), data(native_order) {
    data.Init(bytes.data(), type, static_cast<int>(bytes.size()), decimals);
  }
  std::string Text() { return static_cast<CSTR>(data); }
  std::string Raw() const { return std::string(bytes.begin(), bytes.end()); }
  std::string HexBytes() const { return Hex(bytes); }

  Bytes bytes;
  CRfcData data;
};

// ---- Type table and binding --------------------------------------------

TEST(RfcDataTypes, FixedLengthRule) {
  EXPECT_EQ(RfcFixedLength(TYPE_CHAR, 13), 13);
  EXPECT_EQ(RfcFixedLength(TYPE_BCD, 5), 5);
  EXPECT_EQ(RfcFixedLength(TYPE_BYTE, 3), 3);
  EXPECT_EQ(RfcFixedLength(TYPE_NUM, 7), 7);
  EXPECT_EQ(RfcFixedLength(TYPE_DATE, 3), 8);
  EXPECT_EQ(RfcFixedLength(TYPE_FLOAT, 0), 8);
  EXPECT_EQ(RfcFixedLength(TYPE_TIME, 99), 6);
  EXPECT_EQ(RfcFixedLength(TYPE_INT, 0), 4);
  EXPECT_EQ(RfcFixedLength(TYPE_INT2, 0), 2);
  EXPECT_EQ(RfcFixedLength(TYPE_INT1, 0), 1);
  EXPECT_EQ(RfcFixedLength(TYPE_ITAB, 10), -1);
  EXPECT_EQ(RfcFixedLength(42, 10), -1);
}

TEST(RfcDataTypes, InitAppliesTheRuleAndGetInfoReadsItBack) {
  unsigned char buffer[16] = {};
  CRfcData data(1);
  data.Init(buffer, TYPE_DATE, 3, 1);
  int type = -9, length = -9, decimals = -9;
  data.GetInfo(type, length, decimals);
  EXPECT_EQ(type, TYPE_DATE);
  EXPECT_EQ(length, 8);
  EXPECT_EQ(decimals, 1);
  data.Init(buffer, TYPE_BCD, 5, 2);
  data.GetInfo(type, length, decimals);
  EXPECT_EQ(length, 5);
  EXPECT_EQ(decimals, 2);
  EXPECT_EQ(data.GetData(), buffer);
  data.Init(buffer, TYPE_ITAB, 5, 0);
  data.GetInfo(type, length, decimals);
  EXPECT_EQ(length, -1);
}

TEST(RfcDataClear, EveryTypeGetsItsClearedForm) {
  Value c(TYPE_CHAR, Bytes{1, 2, 3});
  c.data.ClearValue();
  EXPECT_EQ(c.Raw(), "   ");
  Value d(TYPE_DATE, 8);
  d.data.ClearValue();
  EXPECT_EQ(d.Raw(), "00000000");
  Value t(TYPE_TIME, 6);
  t.data.ClearValue();
  EXPECT_EQ(t.Raw(), "000000");
  Value n(TYPE_NUM, 4);
  n.data.ClearValue();
  EXPECT_EQ(n.Raw(), "0000");
  Value p(TYPE_BCD, Bytes{0x12, 0x3C});
  p.data.ClearValue();
  EXPECT_EQ(p.HexBytes(), "00 00");
  Value b(TYPE_BYTE, Bytes{0xFF, 0xFF});
  b.data.ClearValue();
  EXPECT_EQ(b.HexBytes(), "00 00");
  Value f(TYPE_FLOAT, Bytes(8, 0xAA));
  f.data.ClearValue();
  EXPECT_EQ(f.HexBytes(), "00 00 00 00 00 00 00 00");
  Value i(TYPE_INT, Bytes(4, 0xAA));
  i.data.ClearValue();
  EXPECT_EQ(i.HexBytes(), "00 00 00 00");
  Value i2(TYPE_INT2, Bytes(2, 0xAA));
  i2.data.ClearValue();
  EXPECT_EQ(i2.HexBytes(), "00 00");
  Value i1(TYPE_INT1, Bytes{0xAA});
  i1.data.ClearValue();
  EXPECT_EQ(i1.HexBytes(), "00");
  unsigned char untouched[4] = {7, 7, 7, 7};
  CRfcData itab(1);
  itab.Init(untouched, TYPE_ITAB, 4, 0);
  itab.ClearValue();
  itab.Init(untouched, 77, 4, 0);
  itab.ClearValue();
  EXPECT_EQ(Hex(Bytes(untouched, untouched + 4)), "07 07 07 07");
}

// ---- Packed decimals: the worked examples --------------------------------

TEST(RfcDataPacked, TextWithMoreDecimalsIsTruncated) {
  Value v(TYPE_BCD, 3, 2);
  v.data = "1.234";
  EXPECT_EQ(v.HexBytes(), "00 12 3C");
  EXPECT_EQ(v.Text(), "1.23");
}

TEST(RfcDataPacked, EmptyTextIsPositiveZero) {
  Value v(TYPE_BCD, Bytes{0x99, 0x99, 0x9D}, 2);
  v.data = "";
  EXPECT_EQ(v.HexBytes(), "00 00 0C");
  EXPECT_EQ(v.Text(), "0.00");
  v.data = static_cast<CSTR>(nullptr);  // counts as the empty text
  EXPECT_EQ(v.HexBytes(), "00 00 0C");
}

TEST(RfcDataPacked, TooManyIntegerDigitsFail) {
  Value v(TYPE_BCD, Bytes{0x00, 0x45, 0x6C}, 2);
  try {
    v.data = "1234";
    FAIL() << "no exception";
  } catch (const char* text) {
    EXPECT_STREQ(text, kToPack);
  }
  EXPECT_EQ(v.HexBytes(), "00 45 6C");
  v.data = "123";  // three integer digits fit
  EXPECT_EQ(v.Text(), "123.00");
}

TEST(RfcDataPacked, NegativeZeroWithoutDecimalsReadsAsALoneMinus) {
  Value v(TYPE_BCD, Bytes{0x00, 0x0D});
  EXPECT_EQ(v.Text(), "-");
  Value w(TYPE_BCD, Bytes{0x00, 0x00, 0x0D}, 2);
  EXPECT_EQ(w.Text(), "-0.00");
}

TEST(RfcDataPacked, ReadingExamples) {
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x12, 0x3C}, 2).Text(), "1.23");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x01, 0x2C}, 2).Text(), "0.12");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x00, 0x0C}, 0).Text(), "0");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x00, 0x0C}, 2).Text(), "0.00");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x1D}, 0).Text(), "-1");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x15, 0x0C}, 2).Text(), "1.50");  // trailing zeros stay
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x5D}, 2).Text(), "-0.05");
  // Any sign nibble other than D is positive.
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x7F}).Text(), "7");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x7A}).Text(), "7");
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x00, 0x70}).Text(), "7");
}

TEST(RfcDataPacked, StoringExamples) {
  unsigned char bcd[3];
  CRfcData data(1);
  char text[32];

  data.Init(bcd, TYPE_BCD, 2, 0);
  std::strcpy(text, "12.7");
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 2)), "01 2C");

  data.Init(bcd, TYPE_BCD, 3, 2);
  std::strcpy(text, "-3.14159");
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "00 31 4D");

  std::strcpy(text, "5");
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "00 50 0C");

  std::strcpy(text, "+1.5");
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "00 15 0C");
}

TEST(RfcDataPacked, BlanksCountAsZeroAndAreOverwritten) {
  unsigned char bcd[3] = {};
  CRfcData data(1);
  data.Init(bcd, TYPE_BCD, 3, 0);
  char text[] = "1 2 ";
  ASSERT_EQ(data.Str2BCD(text, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "01 02 0C");
  EXPECT_STREQ(text, "1020");
}

TEST(RfcDataPacked, SignsInTheWrongPlaceFailAndLeaveTheTarget) {
  unsigned char bcd[3] = {0x12, 0x34, 0x5C};
  CRfcData data(1);
  data.Init(bcd, TYPE_BCD, 3, 0);
  for (const char* bad : {"12-", "1-2", "+-5", "1+", "--1", "12a", "0x1"}) {
    char text[16];
    std::strcpy(text, bad);
    EXPECT_EQ(data.Str2BCD(text, bcd), 0) << bad;
    EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "12 34 5C") << bad;
  }
  // Without decimals the fraction is never looked at; with decimals a sign in
  // it is as wrong as anywhere else.
  char fraction[] = "1.-2";
  EXPECT_EQ(data.Str2BCD(fraction, bcd), 1);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "00 00 1C");
  data.Init(bcd, TYPE_BCD, 3, 2);
  std::strcpy(fraction, "1.-2");
  EXPECT_EQ(data.Str2BCD(fraction, bcd), 0);
  EXPECT_EQ(Hex(Bytes(bcd, bcd + 3)), "00 00 1C");
}

TEST(RfcDataPacked, IntegerAssignmentFillsTheIntegerPart) {
  Value v(TYPE_BCD, 3, 2);
  v.data = 5;
  EXPECT_EQ(v.HexBytes(), "00 50 0C");
  EXPECT_EQ(v.Text(), "5.00");
  v.data = -123;
  EXPECT_EQ(v.HexBytes(), "12 30 0D");
  Value w(TYPE_BCD, Bytes{0x00, 0x01, 0x0C}, 2);
  try {
    w.data = 1000;
    FAIL() << "no exception";
  } catch (const char* text) {
    EXPECT_STREQ(text, kToPack);
  }
  EXPECT_EQ(w.HexBytes(), "00 01 0C");
  Value big(TYPE_BCD, 6);
  big.data = INT32_MIN;
  EXPECT_EQ(big.Text(), "-2147483648");
}

TEST(RfcDataPacked, TextAssignmentDropsLeadingZeros) {
  Value v(TYPE_BCD, 2);
  v.data = "-007";
  EXPECT_EQ(v.HexBytes(), "00 7D");
  v.data = "000";
  EXPECT_EQ(v.HexBytes(), "00 0C");
  v.data = "+0042";  // four characters of digits, two significant
  EXPECT_EQ(v.HexBytes(), "04 2C");
  Value w(TYPE_BCD, 2, 1);
  w.data = "0.5";
  EXPECT_EQ(w.Text(), "0.5");
  w.data = "-0.5";
  EXPECT_EQ(w.Text(), "-0.5");
}

TEST(RfcDataPacked, OverlongTextToAPackedValueFails) {
  // The working copy holds 2L+3 characters with its terminator; even leading
  // zeros beyond that are too many.
  Value v(TYPE_BCD, Bytes{0x01, 0x2C});
  try {
    v.data = "0000001";  // 7 characters > 2*2+2
    FAIL() << "no exception";
  } catch (const char* text) {
    EXPECT_STREQ(text, kToPack);
  }
  EXPECT_EQ(v.HexBytes(), "01 2C");
  v.data = "+00001";  // six characters fit
  EXPECT_EQ(v.HexBytes(), "00 1C");
}

TEST(RfcDataPacked, LengthAndDecimalsOutsideTheRangeFail) {
  std::vector<unsigned char> bytes(65, 0);
  bytes[63] = 0x1C;
  CRfcData data(1);
  data.Init(bytes.data(), TYPE_BCD, 64, 0);
  EXPECT_EQ(std::string(static_cast<CSTR>(data)), "1");  // 64 bytes is the largest
  data = "-9";
  EXPECT_EQ(std::string(static_cast<CSTR>(data)), "-9");

  bytes[64] = 0x1C;
  data.Init(bytes.data(), TYPE_BCD, 65, 0);
  char text[140];
  EXPECT_EQ(data.BCD2Str(text, bytes.data()), 0);
  std::strcpy(text, "1");
  EXPECT_EQ(data.Str2BCD(text, bytes.data()), 0);
  EXPECT_THROW(data = "1", const char*);
  EXPECT_THROW(static_cast<void>(static_cast<CSTR>(data)), const char*);

  unsigned char small[2] = {0x00, 0x1C};
  data.Init(small, TYPE_BCD, 2, 3);  // 2L-1 decimals would leave no integer place
  EXPECT_EQ(data.BCD2Str(text, small), 0);
  data.Init(small, TYPE_BCD, 2, -1);
  EXPECT_EQ(data.BCD2Str(text, small), 0);
  data.Init(small, TYPE_BCD, 0, 0);
  EXPECT_EQ(data.BCD2Str(text, small), 0);
  data.Init(small, TYPE_BCD, 2, 2);  // 2L-2 is fine
  EXPECT_EQ(data.BCD2Str(text, small), 1);
  EXPECT_STREQ(text, "0.01");
}

TEST(RfcDataPacked, BadNibblesFailToRead) {
  Value v(TYPE_BCD, Bytes{0x0A, 0x1C});
  char text[8];
  EXPECT_EQ(v.data.BCD2Str(text, v.bytes.data()), 0);
  try {
    static_cast<void>(static_cast<CSTR>(v.data));
    FAIL() << "no exception";
  } catch (const char* thrown) {
    EXPECT_STREQ(thrown, kFromPack);
  }
  EXPECT_EQ(v.HexBytes(), "0A 1C");
  EXPECT_THROW(static_cast<void>(static_cast<RFC_INT>(v.data)), const char*);
  EXPECT_THROW(static_cast<void>(static_cast<RFC_INT2>(v.data)), const char*);
  EXPECT_THROW(static_cast<void>(static_cast<RFC_INT1>(v.data)), const char*);
  EXPECT_THROW(static_cast<void>(static_cast<RFC_FLOAT>(v.data)), const char*);
  // The sign nibble is never checked, a digit nibble always.
  EXPECT_EQ(Value(TYPE_BCD, Bytes{0x01, 0x2E}).Text(), "12");
  EXPECT_THROW(Value(TYPE_BCD, Bytes{0xF1, 0x2C}).Text(), const char*);
  EXPECT_THROW(Value(TYPE_BCD, Bytes{0x01, 0xBC}).Text(), const char*);
}

TEST(RfcDataPacked, ReadAsNumbers) {
  Value v(TYPE_BCD, Bytes{0x01, 0x27, 0x5D}, 2);  // -12.75
  EXPECT_EQ(static_cast<RFC_INT>(v.data), -12);
  EXPECT_EQ(static_cast<RFC_INT2>(v.data), -12);
  EXPECT_EQ(static_cast<RFC_INT1>(v.data), 0xF4);  // low 8 bits of -12
  EXPECT_DOUBLE_EQ(static_cast<RFC_FLOAT>(v.data), -12.75);
  Value big(TYPE_BCD, Bytes{0x00, 0x07, 0x00, 0x00, 0x0C});  // 700000
  EXPECT_EQ(static_cast<RFC_INT>(big.data), 700000);
  EXPECT_EQ(static_cast<RFC_INT2>(big.data), 32767);  // out of range: the limit
  Value huge(TYPE_BCD, Bytes{0x09, 0x99, 0x99, 0x99, 0x99, 0x9D});  // -9999999999
  EXPECT_EQ(static_cast<RFC_INT>(huge.data), INT32_MIN);
  Value minus(TYPE_BCD, Bytes{0x00, 0x0D});  // "-": nothing readable
  EXPECT_EQ(static_cast<RFC_INT>(minus.data), 0);
  EXPECT_EQ(static_cast<RFC_FLOAT>(minus.data), 0.0);
}

// ---- Other types: assignment ---------------------------------------------

TEST(RfcDataAssign, NumFromIntegerPadsAfterTheSign) {
  Value v(TYPE_NUM, 5);
  v.data = 42;
  EXPECT_EQ(v.Raw(), "00042");
  v.data = -12;
  EXPECT_EQ(v.Raw(), "-0012");
  Value w(TYPE_NUM, 3);
  w.data = 12345;
  EXPECT_EQ(w.Raw(), "123");
  w.data = -45;
  EXPECT_EQ(w.Raw(), "-45");
}

TEST(RfcDataAssign, NumFromTextPadsWithZerosOnTheLeft) {
  Value v(TYPE_NUM, 5);
  v.data = "42";
  EXPECT_EQ(v.Raw(), "00042");
  v.data = "12345";
  EXPECT_EQ(v.Raw(), "12345");
  v.data = "";
  EXPECT_EQ(v.Raw(), "00000");
}

TEST(RfcDataAssign, TooLongTextThrowsAndTracesTheLength) {
  Value v(TYPE_NUM, 5);
  v.data = "777";
  auto run = RunTraced([&] { v.data = "123456"; });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, kTooLong);
  EXPECT_EQ(v.Raw(), "00777");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[4], "CRfcData::operator=(CSTR) called");
  EXPECT_EQ(run.lines[5], std::string(kTooLong) + "5");

  Value c(TYPE_CHAR, 2);
  auto run_char = RunTraced([&] { c.data = "abc"; });
  EXPECT_EQ(run_char.thrown, kTooLong);
  ASSERT_EQ(run_char.lines.size(), 6u);
  EXPECT_EQ(run_char.lines[5], std::string(kTooLong) + "2");
}

TEST(RfcDataAssign, CharTextIsBlankPadded) {
  Value v(TYPE_CHAR, 4);
  v.data = "ab";
  EXPECT_EQ(v.Raw(), "ab  ");
  EXPECT_EQ(v.Text(), "ab");
  v.data = "wxyz";
  EXPECT_EQ(v.Raw(), "wxyz");
  v.data = "";
  EXPECT_EQ(v.Raw(), "    ");
  v.data = " a";
  EXPECT_EQ(v.Text(), " a");  // leading blanks stay
}

TEST(RfcDataAssign, DateAndTimeCopyOnlyWhatIsGiven) {
  Value d(TYPE_DATE, 8);
  std::memcpy(d.bytes.data(), "19991231", 8);
  d.data = "2003";
  EXPECT_EQ(d.Raw(), "20031231");
  d.data = "2004050607";  // no more than eight
  EXPECT_EQ(d.Raw(), "20040506");
  d.data = "ab";  // no check of the digits
  EXPECT_EQ(d.Raw(), "ab040506");
  Value t(TYPE_TIME, 6);
  std::memcpy(t.bytes.data(), "235959", 6);
  t.data = "12";
  EXPECT_EQ(t.Raw(), "125959");
}

TEST(RfcDataAssign, IntegerToTextTypesAndFloatIsANoOp) {
  for (int type : {TYPE_CHAR, TYPE_DATE, TYPE_TIME, TYPE_FLOAT}) {
    Value v(type, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    v.data = 5;
    EXPECT_EQ(v.HexBytes(), "01 02 03 04 05 06 07 08") << type;
  }
  Value itab(TYPE_ITAB, Bytes{9, 9});
  itab.data = 5;
  itab.data = "5";
  EXPECT_EQ(itab.HexBytes(), "09 09");
}

TEST(RfcDataAssign, TextToBinaryTypesIsANoOp) {
  for (int type : {TYPE_BYTE, TYPE_FLOAT, TYPE_INT, TYPE_INT2, TYPE_INT1}) {
    Value v(type, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    v.data = "12";
    EXPECT_EQ(v.HexBytes(), "01 02 03 04 05 06 07 08") << type;
  }
}

TEST(RfcDataAssign, ByteFromIntegerIsBigEndianFromTheEnd) {
  Value v(TYPE_BYTE, Bytes{0xAA, 0xAA});
  v.data = 258;
  EXPECT_EQ(v.HexBytes(), "01 02");
  Value wide(TYPE_BYTE, Bytes(6, 0xAA));
  wide.data = 0x01020304;
  EXPECT_EQ(wide.HexBytes(), "AA AA 01 02 03 04");  // at most four bytes
  Value minus(TYPE_BYTE, Bytes(4, 0xAA));
  minus.data = -1;
  EXPECT_EQ(minus.HexBytes(), "00 00 00 FF");
  Value one(TYPE_BYTE, Bytes{0xAA});
  one.data = 0x1234;
  EXPECT_EQ(one.HexBytes(), "34");
}

TEST(RfcDataAssign, IntegersInBothByteOrders) {
  Value n(TYPE_INT, 4);
  n.data = 0x01020304;
  RFC_INT native = 0;
  std::memcpy(&native, n.bytes.data(), 4);
  EXPECT_EQ(native, 0x01020304);
  Value big(TYPE_INT, 4, 0, 0);
  big.data = 0x01020304;
  EXPECT_EQ(big.HexBytes(), "01 02 03 04");
  EXPECT_EQ(static_cast<RFC_INT>(big.data), 0x01020304);

  Value s(TYPE_INT2, 2, 0, 0);
  s.data = 0x12345;  // low 16 bits
  EXPECT_EQ(s.HexBytes(), "23 45");
  EXPECT_EQ(static_cast<RFC_INT2>(s.data), 0x2345);
  Value b(TYPE_INT1, 1);
  b.data = 0x1FF;
  EXPECT_EQ(b.HexBytes(), "FF");
}

// ---- Other types: reading --------------------------------------------------

TEST(RfcDataRead, TextTypesReadAsZeroNumbers) {
  for (int type : {TYPE_CHAR, TYPE_DATE, TYPE_TIME}) {
    Value v(type, Bytes{'1', '2', '3', '4', '5', '6', '7', '8'});
    EXPECT_EQ(static_cast<RFC_INT>(v.data), 0) << type;
    EXPECT_EQ(static_cast<RFC_INT2>(v.data), 0) << type;
    EXPECT_EQ(static_cast<RFC_INT1>(v.data), 0) << type;
    EXPECT_EQ(static_cast<RFC_FLOAT>(v.data), 0.0) << type;
  }
}

TEST(RfcDataRead, DateAndTimeText) {
  Value d(TYPE_DATE, Bytes(8, ' '));
  EXPECT_EQ(d.Text(), "");
  std::memcpy(d.bytes.data(), "2003    ", 8);
  EXPECT_EQ(d.Text(), "2003    ");  // only all blanks is empty
  Value t(TYPE_TIME, Bytes(6, ' '));
  EXPECT_EQ(t.Text(), "");
  std::memcpy(t.bytes.data(), "140309", 6);
  EXPECT_EQ(t.Text(), "140309");
}

TEST(RfcDataRead, NumReadsDigitsAsInteger) {
  Value v(TYPE_NUM, Bytes{'0', '0', '4', '2', ' '});
  EXPECT_EQ(static_cast<RFC_INT>(v.data), 42);
  EXPECT_EQ(static_cast<RFC_INT2>(v.data), 0);
  EXPECT_EQ(static_cast<RFC_INT1>(v.data), 0);
  EXPECT_EQ(static_cast<RFC_FLOAT>(v.data), 0.0);
  EXPECT_EQ(v.Text(), "0042");  // leading zeros stay
  Value blanks(TYPE_NUM, Bytes{' ', ' ', '-', '7', 'x'});
  EXPECT_EQ(static_cast<RFC_INT>(blanks.data), -7);
  Value none(TYPE_NUM, Bytes{'a', '1'});
  EXPECT_EQ(static_cast<RFC_INT>(none.data), 0);
  Value large(TYPE_NUM, Bytes(12, '9'));
  EXPECT_EQ(static_cast<RFC_INT>(large.data), INT32_MAX);
}

TEST(RfcDataRead, ByteReadings) {
  Value v(TYPE_BYTE, Bytes{0x01, 0x02});
  EXPECT_EQ(static_cast<RFC_INT>(v.data), 258);
  EXPECT_EQ(static_cast<RFC_INT1>(v.data), 1);  // the first byte
  EXPECT_EQ(static_cast<RFC_INT2>(v.data), 258);
  EXPECT_EQ(static_cast<RFC_FLOAT>(v.data), 0.0);
  Value wide(TYPE_BYTE, Bytes{0x09, 0x01, 0x02, 0x03, 0x04});
  EXPECT_EQ(static_cast<RFC_INT>(wide.data), 0x01020304);  // the last four
  EXPECT_EQ(static_cast<RFC_INT2>(wide.data), 0x0304);     // the last two
  EXPECT_EQ(static_cast<RFC_INT1>(wide.data), 9);
  Value high(TYPE_BYTE, Bytes{0xFF, 0xFE});
  EXPECT_EQ(static_cast<RFC_INT2>(high.data), -2);
  EXPECT_EQ(high.Text(), "");  // no text form
}

TEST(RfcDataRead, IntegerAndFloatGaps) {
  Value i(TYPE_INT, 4);
  i.data = 77;
  EXPECT_EQ(static_cast<RFC_INT>(i.data), 77);
  EXPECT_EQ(static_cast<RFC_FLOAT>(i.data), 0.0);
  EXPECT_EQ(static_cast<RFC_INT2>(i.data), 0);
  EXPECT_EQ(static_cast<RFC_INT1>(i.data), 0);

  Value f(TYPE_FLOAT, 8);
  const double pi = 3.25;
  std::memcpy(f.bytes.data(), &pi, 8);
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 3.25);
  EXPECT_EQ(static_cast<RFC_INT>(f.data), 0);
  f.data = 5;  // stays unchanged
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 3.25);

  Value i1(TYPE_INT1, Bytes{200});
  EXPECT_EQ(static_cast<RFC_INT>(i1.data), 200);
  EXPECT_EQ(static_cast<RFC_INT2>(i1.data), 200);
  EXPECT_EQ(static_cast<RFC_INT1>(i1.data), 200);
  EXPECT_EQ(static_cast<RFC_FLOAT>(i1.data), 0.0);
}

TEST(RfcDataRead, Int2SignExtensionDependsOnByteOrder) {
  Value native(TYPE_INT2, 2);
  native.data = -2;
  EXPECT_EQ(static_cast<RFC_INT>(native.data), -2);
  EXPECT_EQ(static_cast<RFC_INT2>(native.data), -2);
  Value big(TYPE_INT2, Bytes{0xFF, 0xFE}, 0, 0);
  EXPECT_EQ(static_cast<RFC_INT>(big.data), 0xFFFE);  // no sign extension
  EXPECT_EQ(static_cast<RFC_INT2>(big.data), -2);
}

TEST(RfcDataRead, FloatInBigEndianOrder) {
  const double value = -1.5;
  Bytes bytes(8);
  std::memcpy(bytes.data(), &value, 8);
  Bytes reversed(bytes.rbegin(), bytes.rend());
  Value big(TYPE_FLOAT, reversed, 0, 0);
  EXPECT_EQ(static_cast<RFC_FLOAT>(big.data), -1.5);
}

TEST(RfcDataRead, TypesWithoutTextFormGiveTheEmptyText) {
  for (int type : {TYPE_BYTE, TYPE_FLOAT, TYPE_INT, TYPE_INT2, TYPE_INT1, TYPE_ITAB, 99}) {
    Value v(type, Bytes{'1', '2', '3', '4', '5', '6', '7', '8'});
    EXPECT_EQ(v.Text(), "") << type;
  }
}

TEST(RfcDataRead, UnboundValueReadsEmpty) {
  CRfcData data(1);
  EXPECT_EQ(static_cast<RFC_INT>(data), 0);
  EXPECT_STREQ(static_cast<CSTR>(data), "");
  data = 5;
  data = "x";
  data.ClearValue();
}

TEST(RfcDataRead, TextStaysUntilTheNextConversion) {
  Value v(TYPE_CHAR, 3);
  v.data = "abc";
  CSTR first = v.data;
  EXPECT_STREQ(first, "abc");
  std::memcpy(v.bytes.data(), "xyz", 3);
  EXPECT_STREQ(first, "abc");  // a copy, not a view
  CSTR second = v.data;
  EXPECT_STREQ(second, "xyz");
}

// ---- Assign and byte order --------------------------------------------------

TEST(RfcDataCopy, RawCopyForTextAndPackedTypes) {
  Value from(TYPE_CHAR, 4);
  from.data = "wxyz";
  Value to(TYPE_NUM, 4);
  to.data.Assign(from.data);
  EXPECT_EQ(to.Raw(), "wxyz");
  Value shorter(TYPE_CHAR, 2);
  shorter.data = "ab";
  to.data.Assign(shorter.data);  // never more than the other has
  EXPECT_EQ(to.Raw(), "abyz");
  Value packed(TYPE_BCD, Bytes{0x12, 0x3C});
  Value packed_to(TYPE_BCD, 2);
  packed_to.data.Assign(packed.data);
  EXPECT_EQ(packed_to.HexBytes(), "12 3C");
}

TEST(RfcDataCopy, FloatTakesTheOthersNumberByItsType) {
  Value f(TYPE_FLOAT, 8);
  Value i1(TYPE_INT1, Bytes{7});
  f.data.Assign(i1.data);
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 7.0);
  Value i2(TYPE_INT2, 2);
  i2.data = -300;
  f.data.Assign(i2.data);
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), -300.0);
  Value i(TYPE_INT, 4);
  i.data = 123456;
  f.data.Assign(i.data);
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 123456.0);
  Value g(TYPE_FLOAT, 8);
  const double half = 0.5;
  std::memcpy(g.bytes.data(), &half, 8);
  f.data.Assign(g.data);
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 0.5);
  Value packed(TYPE_BCD, Bytes{0x12, 0x3C});
  f.data.Assign(packed.data);  // any other type copies nothing
  EXPECT_EQ(static_cast<RFC_FLOAT>(f.data), 0.5);
}

TEST(RfcDataCopy, IntegersTakeTheirReadings) {
  Value packed(TYPE_BCD, Bytes{0x04, 0x2D});  // -42
  Value i(TYPE_INT, 4);
  i.data.Assign(packed.data);
  EXPECT_EQ(static_cast<RFC_INT>(i.data), -42);
  Value i2(TYPE_INT2, 2);
  i2.data.Assign(packed.data);
  EXPECT_EQ(static_cast<RFC_INT2>(i2.data), -42);
  Value from_int(TYPE_INT, 4);
  from_int.data = 1000;
  i2.data.Assign(from_int.data);  // an INT has no 16-bit reading
  EXPECT_EQ(static_cast<RFC_INT2>(i2.data), 0);
  Value bytes(TYPE_BYTE, Bytes{0x80, 0x01});
  Value i1(TYPE_INT1, 1);
  i1.data.Assign(bytes.data);  // one raw byte
  EXPECT_EQ(i1.HexBytes(), "80");
  Value itab(TYPE_ITAB, Bytes{5});
  itab.data.Assign(bytes.data);
  EXPECT_EQ(itab.HexBytes(), "05");
}

TEST(RfcDataCopy, ToNativeOrderReversesOnce) {
  Value big(TYPE_INT, Bytes{0x00, 0x00, 0x01, 0x02}, 0, 0);
  big.data.ToNativeOrder();
  EXPECT_EQ(big.data.GetNativeOrder(), 1);
  EXPECT_EQ(big.HexBytes(), "02 01 00 00");
  EXPECT_EQ(static_cast<RFC_INT>(big.data), 0x0102);
  big.data.ToNativeOrder();  // already native
  EXPECT_EQ(big.HexBytes(), "02 01 00 00");

  Value s(TYPE_INT2, Bytes{0x01, 0x02}, 0, 0);
  s.data.ToNativeOrder();
  EXPECT_EQ(s.HexBytes(), "02 01");
  Value f(TYPE_FLOAT, Bytes{1, 2, 3, 4, 5, 6, 7, 8}, 0, 0);
  f.data.ToNativeOrder();
  EXPECT_EQ(f.HexBytes(), "08 07 06 05 04 03 02 01");
  Value c(TYPE_CHAR, Bytes{'a', 'b'}, 0, 0);
  c.data.ToNativeOrder();
  EXPECT_EQ(c.Raw(), "ab");
  EXPECT_EQ(c.data.GetNativeOrder(), 1);
}

// ---- Trace lines of the conversions -----------------------------------------

TEST(RfcDataTrace, SmallIntegerReadingsTraceEveryCall) {
  Value v(TYPE_INT1, Bytes{3});
  auto run = RunTraced([&] {
    static_cast<void>(static_cast<RFC_INT1>(v.data));
    static_cast<void>(static_cast<RFC_INT2>(v.data));
    static_cast<void>(static_cast<RFC_INT>(v.data));
    static_cast<void>(static_cast<RFC_FLOAT>(v.data));
    static_cast<void>(static_cast<RFC_INT1>(v.data));
  });
  EXPECT_FALSE(run.threw_text);
  EXPECT_THAT(run.lines, ElementsAre("CRfcData::operator RFC_INT1(void) called",
                                     "CRfcData::operator RFC_INT2(void) called",
                                     "CRfcData::operator RFC_INT1(void) called"));
}

TEST(RfcDataTrace, FailedPackedReadingsTraceTheirOperation) {
  struct Case {
    const char* operation;
    std::function<void(CRfcData&)> read;
    bool own_line;
  };
  const std::vector<Case> cases = {
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
  for (const Case& c : cases) {
    Value v(TYPE_BCD, Bytes{0x0A, 0x1C});
    auto run = RunTraced([&] { c.read(v.data); });
    EXPECT_TRUE(run.threw_text) << c.operation;
    EXPECT_EQ(run.thrown, kFromPack) << c.operation;
    std::vector<std::string> expected;
    if (c.own_line) expected.push_back(c.operation);
    expected.push_back("CRfcData::BCD2Str called");
    expected.insert(expected.end(), {"", "", ""});
    expected.push_back("<header>");
    expected.push_back(c.operation);
    expected.push_back(kToPack);  // the wording of the assignment direction
    ASSERT_EQ(run.lines.size(), expected.size()) << c.operation;
    for (size_t i = 0; i < expected.size(); ++i) {
      if (expected[i] == "<header>") {
        EXPECT_EQ(run.lines[i].rfind("Rfc Class Library Trace at   ", 0), 0u);
      } else {
        EXPECT_EQ(run.lines[i], expected[i]) << c.operation << " line " << i;
      }
    }
  }
}

TEST(RfcDataTrace, FailedPackedAssignmentsTraceTheirOperation) {
  Value v(TYPE_BCD, 2);
  auto from_int = RunTraced([&] { v.data = 12345; });
  EXPECT_EQ(from_int.thrown, kToPack);
  ASSERT_EQ(from_int.lines.size(), 6u);
  EXPECT_EQ(from_int.lines[4], "CRfcData::operator=(RFC_INT) called");
  EXPECT_EQ(from_int.lines[5], kToPack);
  auto from_text = RunTraced([&] { v.data = "1x"; });
  EXPECT_EQ(from_text.thrown, kToPack);
  ASSERT_EQ(from_text.lines.size(), 6u);
  EXPECT_EQ(from_text.lines[4], "CRfcData::operator=(CSTR) called");
  EXPECT_EQ(from_text.lines[5], kToPack);
}

TEST(RfcDataTrace, SuccessfulConversionsWriteNothing) {
  Value v(TYPE_BCD, 3, 2);
  auto run = RunTraced([&] {
    v.data = "1.5";
    v.data = 2;
    static_cast<void>(static_cast<CSTR>(v.data));
    static_cast<void>(static_cast<RFC_INT>(v.data));
    static_cast<void>(static_cast<RFC_FLOAT>(v.data));
  });
  EXPECT_FALSE(run.threw_text);
  EXPECT_FALSE(run.file_exists);
}

TEST(RfcDataTrace, FailuresWithTraceOffStillThrowButWriteNothing) {
  Value v(TYPE_BCD, Bytes{0x0A, 0x1C});
  auto run = RunTraced([&] { static_cast<void>(static_cast<CSTR>(v.data)); }, false);
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, kFromPack);
  EXPECT_FALSE(run.file_exists);
}

}  // namespace
