// CRfcData: the type table, every reading, assignment and copy with
// conversion (one line per input, the whole text compared with
// tests/rfc/expected/rfc_data.txt), the packed shapes swept, the packing step,
// byte order and the unbound value. Failed conversions' trace lines: the
// failure transcript.

#include "rfc/core/rfc_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace {

using Bytes = std::vector<unsigned char>;
using rfc_test::Thrown;

constexpr int kOwnLength = -100;  // bind with the length of the given bytes

std::string TypeName(int type) {
  static const char* const names[] = {"CHAR", "DATE", "BCD", "TIME", "BYTE", "ITAB",
                                      "NUM", "FLOAT", "INT", "INT2", "INT1"};
  return type >= 0 && type <= TYPE_INT1 ? names[type] : "type" + std::to_string(type);
}
bool IsText(int type) { return type == TYPE_CHAR || type == TYPE_DATE || type == TYPE_TIME || type == TYPE_NUM; }
bool LittleEndian() {
  const uint16_t probe = 1;
  return *reinterpret_cast<const unsigned char*>(&probe) == 1;
}
// Numbers in the machine's order are turned round here, so that tables and
// the expected file show them big-endian on every machine.
bool TurnRound(int type, int native) {
  return native != 0 && LittleEndian() && (type == TYPE_INT || type == TYPE_INT2 || type == TYPE_FLOAT);
}

std::string Hex(const Bytes& bytes) {
  std::string out;
  char part[4];
  for (unsigned char b : bytes) {
    std::snprintf(part, sizeof part, out.empty() ? "%02X" : " %02X", b);
    out += part;
  }
  return out;
}
// Text types as quoted text, the others as hex digits.
Bytes Parse(int type, const std::string& given, int native) {
  Bytes bytes(given.begin(), given.end());
  if (!IsText(type)) {
    bytes.clear();
    for (size_t i = 0; i + 1 < given.size(); i += 2) {
      bytes.push_back(static_cast<unsigned char>(std::stoi(given.substr(i, 2), nullptr, 16)));
    }
  }
  if (TurnRound(type, native)) std::reverse(bytes.begin(), bytes.end());
  return bytes;
}
std::string Show(int type, Bytes bytes, int native) {
  if (TurnRound(type, native)) std::reverse(bytes.begin(), bytes.end());
  if (!IsText(type)) return Hex(bytes);
  std::string text = "\"";
  for (unsigned char b : bytes) text += b >= 0x20 ? std::string(1, static_cast<char>(b)) : "\\x" + Hex({b});
  return text + "\"";
}

std::string Number(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char text[40];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}
// A reading, or the text it throws.
template <typename T>
std::string Read(CRfcData& data) {
  try {
    if constexpr (std::is_same_v<T, CSTR>) {
      const std::string text = static_cast<CSTR>(data);
      return Show(TYPE_CHAR, Bytes(text.begin(), text.end()), 1);
    } else {
      return Number(static_cast<double>(static_cast<T>(data)));
    }
  } catch (const char* text) {
    return "!" + std::string(text);
  }
}

// A value bound to bytes of its own.
struct Value {
  Value(int type, const std::string& given, int decimals = 0, int native = 1, int length = kOwnLength)
      : type(type), native(native), bytes(Parse(type, given, native)), data(native) {
    data.Init(bytes.data(), type, length == kOwnLength ? static_cast<int>(bytes.size()) : length, decimals);
  }
  std::string Shown() const { return Show(type, bytes, native); }
  int type, native;
  Bytes bytes;
  CRfcData data;
};

std::string Describe(int type, const std::string& given, int decimals, int native, int length) {
  return TypeName(type) + (decimals != 0 ? "/" + std::to_string(decimals) : "") +
         (length != kOwnLength ? " L" + std::to_string(length) : "") + (native == 0 ? " big-endian" : "") + " " +
         Show(type, Parse(type, given, native), native);
}

TEST(RfcData, TypeTableAndClearedForms) {
  const std::pair<int, int> cases[] = {{TYPE_CHAR, 3}, {TYPE_BCD, 2}, {TYPE_BYTE, 2}, {TYPE_NUM, 4},
                                       {TYPE_DATE, 3}, {TYPE_TIME, 99}, {TYPE_FLOAT, 0}, {TYPE_INT, 0},
                                       {TYPE_INT2, 0}, {TYPE_INT1, 0}, {TYPE_ITAB, 10}, {42, 10}};
  std::string out;
  for (const auto& [type, given] : cases) {
    Bytes buffer(16, 0xAA);
    CRfcData data(1);
    data.Init(buffer.data(), type, given, 3);
    int info_type = -9, length = -9, decimals = -9;
    data.GetInfo(info_type, length, decimals);
    const bool bound = data.GetData() == buffer.data();
    data.ClearValue();
    buffer.resize(static_cast<size_t>(std::max(length, 0)) + 1);
    out += TypeName(type) + " given " + std::to_string(given) + ": fixed " + std::to_string(RfcFixedLength(type, given)) +
           ", info " + std::to_string(info_type) + "/" + std::to_string(length) + "/" + std::to_string(decimals) +
           (bound ? "" : " UNBOUND") + ", cleared " + Hex(buffer) + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/rfc_data_types.txt"));
}

TEST(RfcData, ConversionsOneLinePerInput) {
  struct Reading {
    int type;
    std::string given;
    int decimals = 0, length = kOwnLength;
  };
  const Reading readings[] = {
      // Packed: only D is negative, the sign nibble is never checked further.
      {TYPE_BCD, "00123C", 2}, {TYPE_BCD, "00012C", 2}, {TYPE_BCD, "00000C"}, {TYPE_BCD, "00000C", 2},
      {TYPE_BCD, "001D"}, {TYPE_BCD, "150C", 2}, {TYPE_BCD, "005D", 2}, {TYPE_BCD, "000D"},
      {TYPE_BCD, "00000D", 2}, {TYPE_BCD, "007F"}, {TYPE_BCD, "007A"}, {TYPE_BCD, "0070"},
      {TYPE_BCD, "012E"}, {TYPE_BCD, "001C", 2}, {TYPE_BCD, "125C", 3}, {TYPE_BCD, "125D", 3},
      {TYPE_BCD, "5C", 1}, {TYPE_BCD, "0D", 1}, {TYPE_BCD, "00500C", 2}, {TYPE_BCD, "01275D", 2},
      {TYPE_BCD, "000700000C"}, {TYPE_BCD, "09999999999D"}, {TYPE_BCD, std::string(126, '0') + "1C"},
      // Digit nibbles above 9, and shapes outside L 1..64, D 0..2L-1, fail.
      {TYPE_BCD, "0A1C"}, {TYPE_BCD, "F12C"}, {TYPE_BCD, "01BC"}, {TYPE_BCD, std::string(130, '0')},
      {TYPE_BCD, "001C", 4}, {TYPE_BCD, "001C", -1}, {TYPE_BCD, "001C", 0, 0}, {TYPE_BCD, "5C", 2},
      // Numbers at their edges, in both orders.
      {TYPE_INT, "80000000"}, {TYPE_INT, "7FFFFFFF"}, {TYPE_INT, "0000000C"}, {TYPE_INT, "FFFFFFFE"},
      {TYPE_INT, "00000000"}, {TYPE_INT, "00000102"}, {TYPE_INT2, "8000"}, {TYPE_INT2, "7FFF"}, {TYPE_INT2, "FFFE"},
      {TYPE_INT1, "FF"}, {TYPE_INT1, "00"}, {TYPE_INT1, "C8"}, {TYPE_FLOAT, "3FB999999999999A"},
      {TYPE_FLOAT, "8000000000000000"}, {TYPE_FLOAT, "0000000000000000"}, {TYPE_FLOAT, "01A56E1FC2F8F359"},
      {TYPE_FLOAT, "7FEFFFFFFFFFFFFF"}, {TYPE_FLOAT, "4004000000000000"}, {TYPE_FLOAT, "C00A000000000000"},
      {TYPE_FLOAT, "4415AF1D78B58C40"}, {TYPE_FLOAT, "7FF0000000000000"}, {TYPE_FLOAT, "FFF0000000000000"},
      {TYPE_FLOAT, "7FF8000000000000"}, {TYPE_FLOAT, "FFF0000000000001"}, {TYPE_FLOAT, "BFF8000000000000"},
      // BYTE: the last four and two bytes as numbers, but the first one.
      {TYPE_BYTE, "00"}, {TYPE_BYTE, "0102"}, {TYPE_BYTE, "0901020304"}, {TYPE_BYTE, "FFFE"},
      {TYPE_BYTE, "00112233445566778899AABBCCDDEEFF"},
      // Texts: trailing blanks go, leading ones and zeros stay; blank dates and
      // times are empty; NUM reads as an integer only, skipping white space.
      {TYPE_CHAR, " ab  "}, {TYPE_CHAR, "12345678"}, {TYPE_NUM, "0042 "}, {TYPE_NUM, "  -7x"}, {TYPE_NUM, "a1"},
      {TYPE_NUM, "\t\r+5"}, {TYPE_NUM, "999999999999"}, {TYPE_DATE, "        "}, {TYPE_DATE, "2003    "},
      {TYPE_DATE, "12345678"}, {TYPE_TIME, "      "}, {TYPE_TIME, "140309"}, {TYPE_ITAB, "3132"}, {99, "3132"},
  };
  std::string out = "# readings: text, RFC_INT, RFC_INT2, RFC_INT1, RFC_FLOAT\n";
  for (const Reading& r : readings) {
    for (int native : {1, 0}) {
      if (native == 0 && !TurnRound(r.type, 1)) continue;
      Value v(r.type, r.given, r.decimals, native, r.length);
      out += Describe(r.type, r.given, r.decimals, native, r.length) + ": " + Read<CSTR>(v.data) + ", " +
             Read<RFC_INT>(v.data) + ", " + Read<RFC_INT2>(v.data) + ", " + Read<RFC_INT1>(v.data) + ", " +
             Read<RFC_FLOAT>(v.data) + (v.bytes == Parse(r.type, r.given, native) ? "" : " CHANGED") + "\n";
    }
  }

  struct Assignment {
    int type;
    std::string before;
    std::variant<RFC_INT, CSTR> value;
    int decimals = 0;
  };
  const Assignment assignments[] = {
      // Packed from texts: the fraction is dropped without D and cut, not
      // rounded, with it; leading zeros after the sign go first; the copy of
      // 2L+3 characters ends the reading; without D the fraction is never read.
      {TYPE_BCD, "1111", "12.7"}, {TYPE_BCD, "111111", "-3.14159", 2}, {TYPE_BCD, "111111", "5", 2},
      {TYPE_BCD, "111111", "+1.5", 2}, {TYPE_BCD, "111111", "1.234", 2}, {TYPE_BCD, "111111", "", 2},
      {TYPE_BCD, "111111", "123", 2}, {TYPE_BCD, "111111", "1234", 2}, {TYPE_BCD, "1111", "-007"},
      {TYPE_BCD, "1111", "000"}, {TYPE_BCD, "1111", "+0042"}, {TYPE_BCD, "1111", "-0.5", 1},
      {TYPE_BCD, "1111", "+00001"}, {TYPE_BCD, "1111", "0000001"}, {TYPE_BCD, "111111", "1.-2"},
      {TYPE_BCD, "111111", "1.-2", 2}, {TYPE_BCD, "111111", "12-"}, {TYPE_BCD, "111111", "1-2"},
      {TYPE_BCD, "111111", "+-5"}, {TYPE_BCD, "111111", "--1"}, {TYPE_BCD, "111111", "12a"},
      {TYPE_BCD, "111111", "0x1"}, {TYPE_BCD, "999D", static_cast<CSTR>(nullptr)},
      {TYPE_BCD, std::string(130, '0'), "1"}, {TYPE_BCD, std::string(128, '0'), "-9"},
      // Packed from numbers.
      {TYPE_BCD, "000000", 5, 2}, {TYPE_BCD, "000000", -123, 2}, {TYPE_BCD, "12300D", 1000, 2},
      {TYPE_BCD, "000000000000", INT32_MIN}, {TYPE_BCD, "0000", 12345},
      // NUM: zeros inserted after the sign; longer numbers keep their left part.
      {TYPE_NUM, "xxxxx", 42}, {TYPE_NUM, "xxxxx", -12}, {TYPE_NUM, "xxx", 12345}, {TYPE_NUM, "xxx", -45},
      {TYPE_NUM, "xxxxx", "42"}, {TYPE_NUM, "xxxxx", ""}, {TYPE_NUM, "00777", "123456"},
      // CHAR: blank-padded, no terminator; DATE and TIME: only what is given, unchecked.
      {TYPE_CHAR, "xxxx", "ab"}, {TYPE_CHAR, "xxxx", "wxyz"}, {TYPE_CHAR, "00777", "123456"},
      {TYPE_DATE, "19991231", "2003"}, {TYPE_DATE, "19991231", "2004050607"}, {TYPE_DATE, "19991231", "ab"},
      {TYPE_TIME, "235959", "12"},
      // BYTE: big-endian from the end, at most four bytes.
      {TYPE_BYTE, "AAAA", 258}, {TYPE_BYTE, "AAAAAAAAAAAA", 0x01020304}, {TYPE_BYTE, "AAAAAAAA", -1},
      {TYPE_BYTE, "AA", 0x1234},
      // Integers in both orders, the small ones cut to their width.
      {TYPE_INT, "00000000", 0x01020304}, {TYPE_INT2, "0000", 0x12345}, {TYPE_INT1, "00", 0x1FF},
      // The deliberate no-ops: integers to text types and FLOAT, texts to the
      // binary types, anything to ITAB.
      {TYPE_CHAR, "12345678", 5}, {TYPE_DATE, "12345678", 5}, {TYPE_TIME, "123456", 5},
      {TYPE_FLOAT, "0102030405060708", 5}, {TYPE_ITAB, "0102", 5}, {TYPE_BYTE, "0102", "12"},
      {TYPE_FLOAT, "0102030405060708", "12"}, {TYPE_INT, "01020304", "12"}, {TYPE_INT2, "0102", "12"},
      {TYPE_INT1, "01", "12"}, {TYPE_ITAB, "0102", "12"},
  };
  out += "# assignments: the bytes after, the text thrown\n";
  for (const Assignment& a : assignments) {
    for (int native : {1, 0}) {
      if (native == 0 && !TurnRound(a.type, 1)) continue;
      Value v(a.type, a.before, a.decimals, native);
      const CSTR* text = std::get_if<CSTR>(&a.value);
      const std::string thrown = Thrown([&] {
        if (text != nullptr) {
          v.data = *text;
        } else {
          v.data = std::get<RFC_INT>(a.value);
        }
      });
      out += Describe(a.type, a.before, a.decimals, native, kOwnLength) + " = " +
             (text == nullptr ? std::to_string(std::get<RFC_INT>(a.value))
                              : *text == nullptr ? "null" : "\"" + std::string(*text) + "\"") +
             ": " + v.Shown() + (thrown.empty() ? "" : " !" + thrown) +
             (a.type == TYPE_BCD ? " reads " + Read<CSTR>(v.data) : "") + "\n";
    }
  }

  struct Copy {
    int to_type;
    std::string to;
    int from_type;
    std::string from;
  };
  const Copy copies[] = {
      // Raw copies of the target's length, never more than the source has.
      {TYPE_NUM, "abcd", TYPE_CHAR, "wxyz"}, {TYPE_NUM, "abcd", TYPE_CHAR, "wx"}, {TYPE_BCD, "0000", TYPE_BCD, "123C"},
      // FLOAT takes the source's number by the source's type.
      {TYPE_FLOAT, "0000000000000000", TYPE_INT1, "07"}, {TYPE_FLOAT, "0000000000000000", TYPE_INT2, "FED4"},
      {TYPE_FLOAT, "0000000000000000", TYPE_INT, "0001E240"},
      {TYPE_FLOAT, "0000000000000000", TYPE_FLOAT, "3FE0000000000000"},
      {TYPE_FLOAT, "0909090909090909", TYPE_BCD, "123C"},
      // INT and INT2 take their readings; INT1 one raw byte; ITAB nothing.
      {TYPE_INT, "00000000", TYPE_BCD, "042D"}, {TYPE_INT2, "0909", TYPE_BCD, "042D"},
      {TYPE_INT2, "0909", TYPE_INT, "000003E8"}, {TYPE_INT1, "00", TYPE_BYTE, "8001"}, {TYPE_ITAB, "05", TYPE_BYTE, "8001"},
  };
  out += "# copies with conversion by the target's type\n";
  for (const Copy& c : copies) {
    Value to(c.to_type, c.to);
    Value from(c.from_type, c.from);
    to.data.Assign(from.data);
    out += TypeName(c.to_type) + " " + Show(c.to_type, Parse(c.to_type, c.to, 1), 1) + " <- " +
           TypeName(c.from_type) + " " + from.Shown() + ": " + to.Shown() + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/rfc_data.txt"));
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
      const std::string zeros(static_cast<size_t>(2 * length - 2), '0');
      for (const auto& [hex, text] : {std::pair{std::string(zeros.size(), '9') + "9D", nines},
                                      std::pair{zeros + "1D", unit}}) {
        Value value(TYPE_BCD, hex, decimals);
        ASSERT_EQ(static_cast<CSTR>(value.data), text) << "L=" << length << " D=" << decimals;
        const Bytes bytes = value.bytes;
        std::fill(value.bytes.begin(), value.bytes.end(), 0);
        value.data = text.c_str();
        ASSERT_EQ(value.bytes, bytes) << text;
      }
      if (decimals == digits) {
        // Str2BCD takes no integer digit here, not even the 0 the text shows.
        Value value(TYPE_BCD, std::string(zeros.size() + 2, '7'), decimals);
        std::string zero = "0." + std::string(static_cast<size_t>(decimals), '1');
        EXPECT_EQ(value.data.Str2BCD(zero.data(), value.bytes.data()), 0);
        EXPECT_EQ(value.bytes, Bytes(static_cast<size_t>(length), 0x77));
        EXPECT_EQ(value.data.Str2BCD(zero.data() + 1, value.bytes.data()), 1);
      }
    }
  }
  // The packing step itself takes a blank as the digit 0 and writes it back.
  Value value(TYPE_BCD, "000000");
  char text[] = "1 2 ";
  ASSERT_EQ(value.data.Str2BCD(text, value.bytes.data()), 1);
  EXPECT_EQ(Hex(value.bytes), "01 02 0C");
  EXPECT_STREQ(text, "1020");
  char many[] = "123";
  value.data.Init(value.bytes.data(), TYPE_BCD, 1, 0);  // more digits than nibbles
  EXPECT_EQ(value.data.Str2BCD(many, value.bytes.data()), 0);
  char bcd_text[140];
  EXPECT_EQ(Value(TYPE_BCD, "0A1C").data.BCD2Str(bcd_text, Parse(TYPE_BCD, "0A1C", 1).data()), 0);
}

TEST(RfcData, ByteOrderUnboundValuesAndTheTextCopy) {
  // ToNativeOrder turns the numbers around once.
  for (const auto& [type, given, after] : {std::tuple{TYPE_INT, "00000102", "02 01 00 00"},
                                           std::tuple{TYPE_INT2, "0102", "02 01"},
                                           std::tuple{TYPE_FLOAT, "0102030405060708", "08 07 06 05 04 03 02 01"},
                                           std::tuple{TYPE_CHAR, "ab", "61 62"}}) {
    Value v(type, given, 0, 0);
    v.data.ToNativeOrder();
    EXPECT_EQ(v.data.GetNativeOrder(), 1);
    v.data.ToNativeOrder();
    EXPECT_EQ(Hex(v.bytes), after) << type;
  }
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
  Value v(TYPE_CHAR, "abc");
  CSTR first = v.data;
  std::memcpy(v.bytes.data(), "xyz", 3);
  EXPECT_STREQ(first, "abc");  // a copy, valid until the next conversion
  EXPECT_STREQ(static_cast<CSTR>(v.data), "xyz");
}

}  // namespace
